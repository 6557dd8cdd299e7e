#pragma once
// The uploader for GPUs that share memory with the CPU: tensors are written straight into buffers in an
// upload heap, which such a GPU reads as fast as its own, so there is no second copy into a default heap.

#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/Future.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/ImmutableString.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/ITensorFeatureDescription.h"
#include "kivml/gpu/D3D12.h"
#include "kivml/gpu/DX12UploadHeapRecycler.h"
#include "kivml/gpu/DX12Uploader.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class KIVML_EXPORT DX12IntegratedUploader : public DX12Uploader {
 public:
  using FeatureContainerVector = IMLEvaluator::FeatureContainerVector;
  // Descriptions by feature name.
  using FeatureDescriptionMap =
      std::map<kivcore::utility::ImmutableString, kivcore::classref::InterfaceRef<ITensorFeatureDescription>,
               std::less<kivcore::utility::ImmutableString>,
               kivcore::allocator::STLAllocator<
                   std::pair<const kivcore::utility::ImmutableString,
                             kivcore::classref::InterfaceRef<ITensorFeatureDescription>>>>;

  // Use Create: uploads need the uploader held by std::shared_ptr.
  DX12IntegratedUploader(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor,
                         std::shared_ptr<DX12UploadHeapRecycler> recycler, ComPtr<ID3D12Device> device);
  ~DX12IntegratedUploader() override;

  // `recycler` must not be null. Throws kiv_exception(eInvalidArgument) for a null parent.
  static std::shared_ptr<DX12IntegratedUploader> Create(
      std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor,
      std::shared_ptr<DX12UploadHeapRecycler> recycler, ComPtr<ID3D12Device> device);

  // Copies every tensor into a buffer of its own, all in one heap leased from the pool for this call, and
  // yields the containers in their order with the same names, each feature replaced by an
  // ID3D12ResourceFeature of the tensor's shape. A buffer holds as many bytes as the feature's description
  // (found by the container's name) says, and that many are copied. The call fails as a whole, with:
  // - std::out_of_range("invalid map<K, T> key") for a name without a description;
  // - the pool's failure when it has no heap to lease (eBadAllocException when it can make none);
  // - "CreatePlacedResource failed." when the tensors do not fit in the heap;
  // - "MapResource() error: ..." when the pool's heaps are out of the CPU's reach;
  // - the null-pointer exception naming ITensorMLFeatureAccessor for a feature that is not a CPU tensor;
  // - kiv_exception(eInvalidArgument) for a tensor that holds fewer bytes than its description;
  // - ExecutorIsTerminatedException when the upload queue has shut down, or the uploader went before the
  //   queue got to the call.
  // Throws std::bad_weak_ptr, at once, when no std::shared_ptr owns the uploader.
  virtual kivcore::async::Future<FeatureContainerVector> UploadCPUTensors(FeatureContainerVector&& features,
                                                                          FeatureDescriptionMap descriptions);
};

}  // namespace kivml::gpu
