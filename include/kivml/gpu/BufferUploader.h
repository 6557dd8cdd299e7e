#pragma once
// Base of the uploaders, which move CPU tensors into GPU buffers off the caller's thread. Uploads run on a
// queue of their own over the parent executor, two at a time.

#include <memory>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/threads/AsyncThreadedSubExecutor.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class KIVML_EXPORT BufferUploader {
 public:
  // Throws kiv_exception(eInvalidArgument) for a null parent.
  explicit BufferUploader(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor);
  virtual ~BufferUploader();
  BufferUploader(const BufferUploader&) = delete;
  BufferUploader& operator=(const BufferUploader&) = delete;

 protected:
  const std::shared_ptr<kivcore::threads::AsyncThreadedSubExecutor> mUploadQueue;
};

}  // namespace kivml::gpu
