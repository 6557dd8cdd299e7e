#include "kivml/gpu/BufferUploader.h"

namespace kivml::gpu {

namespace {
constexpr int kConcurrentUploads = 2;
}

BufferUploader::BufferUploader(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor)
    : mUploadQueue(kivcore::threads::CreateSubExecutor(parentExecutor, kConcurrentUploads)) {}

BufferUploader::~BufferUploader() = default;

}  // namespace kivml::gpu
