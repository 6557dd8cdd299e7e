#include "kivml/gpu/DX12IntegratedUploader.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <typeinfo>
#include <utility>

#include "kivcore/async/ExecutorIsTerminatedException.h"
#include "kivcore/async/Promise.h"
#include "kivcore/async/UntypedFuture.h"
#include "kivcore/classref/Implements.h"
#include "kivcore/config/NullPtrException.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/TypeName.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/features/CreateD3D12ResourceFeature.h"
#include "kivml/utility/TensorLayout.h"

namespace kivml::gpu {
namespace {

using kivcore::classref::InterfaceRef;
using FeatureContainerVector = DX12IntegratedUploader::FeatureContainerVector;
using FeatureDescriptionMap = DX12IntegratedUploader::FeatureDescriptionMap;
using HeapLease = std::shared_ptr<DX12HeapWrapper>;

// One call in flight, shared by the tasks that carry it. Should the queue drop them unrun, the last one to
// go fails the call.
struct Upload {
  Upload(FeatureContainerVector&& features, FeatureDescriptionMap&& descriptions)
      : mFeatures(std::move(features)), mDescriptions(std::move(descriptions)) {}
  ~Upload() {
    try {
      mResult.SetException(kivcore::async::ExecutorIsTerminatedException());
    } catch (...) {
      // Out of memory for the exception: the promise breaks instead.
    }
  }
  Upload(const Upload&) = delete;
  Upload& operator=(const Upload&) = delete;

  kivcore::async::Promise<FeatureContainerVector> mResult;
  FeatureContainerVector mFeatures;
  const FeatureDescriptionMap mDescriptions;
};

const InterfaceRef<ITensorFeatureDescription>& FindDescription(
    const FeatureDescriptionMap& descriptions, const kivcore::utility::ImmutableString& name) {
  const auto found = descriptions.find(name);
  if (found == descriptions.end()) {
    // Hosts match this text, which is not the one every standard library gives map::at.
    throw std::out_of_range("invalid map<K, T> key");
  }
  if (!found->second) {
    kivcore::config::DoThrowNullPtrException(kivcore::debug::GetTypeName(typeid(ITensorFeatureDescription)));
  }
  return found->second;
}

// Runs on the upload queue once the pool has answered.
void PlaceFeatures(Upload& upload, const kivcore::async::Future<HeapLease>& lease) {
  try {
    const HeapLease& heap = lease.Get();
    for (IMLEvaluator::FeatureContainer& container : upload.mFeatures) {
      const uint64_t size =
          utility::CalculateTensorFeatureSize(FindDescription(upload.mDescriptions, container.mFeatureName));
      // Each buffer holds the lease, so the heap returns to the pool only once the call's last buffer goes.
      std::shared_ptr<DX12ResourceWrapper> resource = heap->CreateResourceHeldBy(size, heap);
      const InterfaceRef<ITensorMLFeatureAccessor> tensor =
          container.mFeature.Query<ITensorMLFeatureAccessor>();
      // The copy takes the description's word for the size; a smaller tensor would be read past its end.
      if (size > 0 &&
          (tensor->GetCount() * tensor->GetDataTypeSize() < size || tensor->GetData() == nullptr)) {
        throw kivcore::kiv_exception(
            "kivml::gpu::DX12IntegratedUploader::UploadCPUTensors: a tensor holds fewer bytes than its "
            "description",
            kivcore::config::eInvalidArgument);
      }
      resource->CopyToResource(tensor->GetData(), size);
      container.mFeature =
          features::CreateD3D12ResourceFeature(std::move(resource), tensor->GetShape()).Query<IMLFeature>();
    }
    upload.mResult.SetValue(std::move(upload.mFeatures));
  } catch (...) {
    upload.mResult.SetException(std::current_exception());
  }
}

}  // namespace

DX12IntegratedUploader::DX12IntegratedUploader(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor,
                                               std::shared_ptr<DX12UploadHeapRecycler> recycler,
                                               ComPtr<ID3D12Device> device)
    : DX12Uploader(std::move(parentExecutor), std::move(recycler), std::move(device)) {}

DX12IntegratedUploader::~DX12IntegratedUploader() = default;

std::shared_ptr<DX12IntegratedUploader> DX12IntegratedUploader::Create(
    std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor,
    std::shared_ptr<DX12UploadHeapRecycler> recycler, ComPtr<ID3D12Device> device) {
  return kivcore::classref::CreateObject<DX12IntegratedUploader>(std::move(parentExecutor),
                                                                 std::move(recycler), std::move(device));
}

kivcore::async::Future<DX12IntegratedUploader::FeatureContainerVector>
DX12IntegratedUploader::UploadCPUTensors(FeatureContainerVector&& features,
                                         FeatureDescriptionMap descriptions) {
  std::weak_ptr<DX12IntegratedUploader> weakSelf =
      std::static_pointer_cast<DX12IntegratedUploader>(shared_from_this());
  auto upload = std::allocate_shared<Upload>(kivcore::allocator::STLAllocator<Upload>(), std::move(features),
                                             std::move(descriptions));
  kivcore::async::Future<FeatureContainerVector> result = upload->mResult.GetFuture();
  // The lease is awaited by a continuation rather than by a blocked task: the pool's queue may need the
  // very threads of the parent executor that blocked uploads would hold.
  mUploadQueue->Post(
      [weakSelf = std::move(weakSelf), upload]() {
        const std::shared_ptr<DX12IntegratedUploader> self = weakSelf.lock();
        if (self == nullptr) {
          return;
        }
        try {
          const kivcore::async::Future<HeapLease> lease = self->mRecycler->GetBuffer();
          kivcore::async::UntypedFuture(lease).OnComplete(self->mUploadQueue,
                                                          [upload, lease] { PlaceFeatures(*upload, lease); });
        } catch (...) {
          upload->mResult.SetException(std::current_exception());
        }
      },
      0);
  return result;
}

}  // namespace kivml::gpu
