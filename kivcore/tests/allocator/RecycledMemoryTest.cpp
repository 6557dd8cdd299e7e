#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "kivcore/allocator/MemoryRecycler.h"
#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/allocator/STLAllocator.h"

namespace kivcore::allocator {
namespace {

TEST(MemoryRecyclerTest, BlocksAreAlignedAndLargeEnoughForEverySize) {
  for (size_t bytes : {size_t{0}, size_t{1}, size_t{15}, size_t{16}, size_t{17}, size_t{63}, size_t{64},
                       size_t{65}, size_t{1000}, size_t{4097}, size_t{1} << 20, (size_t{64} << 20) + 1}) {
    size_t actual = 0;
    void* p = MemoryRecycler::Allocate(bytes, actual);
    ASSERT_NE(p, nullptr);
    EXPECT_GE(actual, bytes);
    const size_t alignment = bytes >= 64 ? 64 : 16;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignment, 0u) << bytes;
    std::memset(p, 0xAB, bytes);  // the whole requested size is usable (ASan checks it)
    MemoryRecycler::Recycle(p, bytes);
  }
}

TEST(MemoryRecyclerTest, ConcurrentAllocateAndRecycleKeepBlocksDistinct) {
  // Each thread writes its own pattern into its blocks; a block handed out twice would corrupt one.
  std::vector<std::thread> threads;
  std::atomic<int> corrupted{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &corrupted] {
      for (int round = 0; round < 2000; ++round) {
        const size_t bytes = 24 + static_cast<size_t>((round * 7 + t) % 200);
        size_t actual = 0;
        auto* p = static_cast<unsigned char*>(MemoryRecycler::Allocate(bytes, actual));
        std::memset(p, t, bytes);
        std::this_thread::yield();
        for (size_t i = 0; i < bytes; ++i) {
          if (p[i] != t) {
            corrupted.fetch_add(1);
            break;
          }
        }
        MemoryRecycler::Recycle(p, bytes);
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(corrupted.load(), 0);
}

TEST(STLAllocatorTest, ContainersWorkOverTheRecycler) {
  std::vector<uint64_t, STLAllocator<uint64_t>> values;
  for (uint64_t i = 0; i < 10000; ++i) {
    values.push_back(i);
  }
  EXPECT_EQ(values[9999], 9999u);
  EXPECT_TRUE(STLAllocator<int>() == STLAllocator<double>());
}

TEST(RecycledMemoryTest, CreateGivesAWritableBufferOfTheRequestedSize) {
  auto memory = RecycledMemory::Create(36);
  ASSERT_NE(memory->Buffer(), nullptr);
  EXPECT_EQ(memory->Size(), 36u);
  EXPECT_FALSE(memory->IsAttached());
  std::memset(memory->Buffer(), 1, 36);

  auto empty = RecycledMemory::Create(0);
  EXPECT_EQ(empty->Buffer(), nullptr);
  EXPECT_EQ(empty->Size(), 0u);
}

TEST(RecycledMemoryTest, AttachedViewKeepsItsOwnerAlive) {
  auto image = RecycledMemory::Create(100);
  for (int i = 0; i < 100; ++i) {
    image->Buffer()[i] = static_cast<char>(i);
  }
  std::weak_ptr<RecycledMemory> imageAlive = image;

  auto view = RecycledMemory::Create(8);  // its own block is released on attach
  view->AttachToExternalBuffer(image, image->Buffer() + 40, 60);
  image.reset();

  ASSERT_FALSE(imageAlive.expired());
  EXPECT_TRUE(view->IsAttached());
  EXPECT_EQ(view->Size(), 60u);
  EXPECT_EQ(view->Buffer()[0], 40);
  EXPECT_EQ(view->Buffer()[59], 99);
  view.reset();
  EXPECT_TRUE(imageAlive.expired());
}

}  // namespace
}  // namespace kivcore::allocator
