// An allocator that keeps the last block it freed and hands it back on the next
// request of the same size. A std::deque used as a sliding window or as a
// one-slot mailbox frees a block and soon asks for one of the same size again;
// with this allocator it reuses that block instead of going to the heap once
// every few frames. Each copy starts with an empty cache, and any copy may free
// what another allocated. Not thread-safe, like the container that owns it.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

template <typename T>
class RecyclingAllocator {
 public:
  using value_type = T;
  using is_always_equal = std::true_type;

  RecyclingAllocator() noexcept = default;
  RecyclingAllocator(const RecyclingAllocator&) noexcept {}
  template <typename U>
  RecyclingAllocator(const RecyclingAllocator<U>&) noexcept {}  // NOLINT: implicit rebind
  RecyclingAllocator& operator=(const RecyclingAllocator&) noexcept { return *this; }
  ~RecyclingAllocator() { ::operator delete(spare_); }

  T* allocate(std::size_t n) {
    if (spare_ != nullptr && spareCount_ == n) {
      T* block = spare_;
      spare_ = nullptr;
      return block;
    }
    return static_cast<T*>(::operator new(n * sizeof(T)));
  }

  void deallocate(T* block, std::size_t n) noexcept {
    if (spare_ == nullptr) {
      spare_ = block;
      spareCount_ = n;
    } else {
      ::operator delete(block);
    }
  }

 private:
  T* spare_ = nullptr;
  std::size_t spareCount_ = 0;
};

template <typename T, typename U>
bool operator==(const RecyclingAllocator<T>&, const RecyclingAllocator<U>&) noexcept {
  return true;
}
template <typename T, typename U>
bool operator!=(const RecyclingAllocator<T>&, const RecyclingAllocator<U>&) noexcept {
  return false;
}
