// Large arrays written once, for lists of very many worlds. On this kind of
// host most of the cost of a large array is the page faults of its first
// writes; an anonymous mapping that asks for huge pages takes one fault per
// 2 MiB instead of one per 4 KiB. Growing remaps the pages and copies nothing,
// so elements must be trivially copyable, and pointers into the array do not
// survive a growth: keep indexes.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

namespace world {

namespace bulk {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Smaller arrays take small pages: rounding them up to a huge page would cost
// more memory than their faults cost time.
constexpr std::size_t kHugeFrom = std::size_t{512} << 10;

// Whole pages, or whole huge pages for a large array.
inline std::size_t RoundUp(std::size_t bytes) {
   const std::size_t unit = bytes >= kHugeFrom ? kHugePage : kPage;
   return (bytes + unit - 1) / unit * unit;
}

inline void AdviseHuge(void *memory, std::size_t bytes) {
   // Advice only: without transparent huge pages the array still works.
   if (bytes >= kHugeFrom) {
      madvise(memory, bytes, MADV_HUGEPAGE);
   }
}

// A fresh mapping of bytes (a multiple of RoundUp's unit), or below the
// growth of one to newBytes, its pages moved; each throws std::bad_alloc when
// the system refuses.
inline void *Map(std::size_t bytes) {
   void *memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
   if (memory == MAP_FAILED) {
      throw std::bad_alloc();
   }
   AdviseHuge(memory, bytes);
   return memory;
}

inline void *Remap(void *memory, std::size_t oldBytes, std::size_t newBytes) {
   void *moved = mremap(memory, oldBytes, newBytes, MREMAP_MAYMOVE);
   if (moved == MAP_FAILED) {
      throw std::bad_alloc();
   }
   AdviseHuge(moved, newBytes);
   return moved;
}

}  // namespace bulk

template <typename T>
class BulkArray {
   static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

public:
   BulkArray() = default;
   BulkArray(const BulkArray &) = delete;
   BulkArray &operator=(const BulkArray &) = delete;
   BulkArray(BulkArray &&other) noexcept
       : data_(std::exchange(other.data_, nullptr)),
         size_(std::exchange(other.size_, 0)),
         bytes_(std::exchange(other.bytes_, 0)) {}
   ~BulkArray() {
      if (data_ != nullptr) {
         munmap(data_, bytes_);
      }
   }

   // Room for count elements; pages that are never written cost nothing.
   void Reserve(std::size_t count) {
      if (count > Capacity()) {
         const std::size_t bytes = bulk::RoundUp(count * sizeof(T));
         data_ = static_cast<T *>(data_ == nullptr ? bulk::Map(bytes) : bulk::Remap(data_, bytes_, bytes));
         bytes_ = bytes;
      }
   }
   // A value-initialised element at the end.
   T &Append() {
      if (size_ == Capacity()) {
         Reserve(size_ < 1024 ? 1024 : size_ * 2);
      }
      return *new (data_ + size_++) T();
   }
   // Appends count copies of value.
   void Fill(std::size_t count, const T &value) {
      Reserve(size_ + count);
      for (std::size_t i = 0; i < count; ++i) {
         data_[size_++] = value;
      }
   }
   // Appends count elements copied from source.
   void Append(const T *source, std::size_t count) {
      if (count > Capacity() - size_) {
         Reserve(size_ + count < 2 * size_ ? 2 * size_ : size_ + count);
      }
      if (count != 0) {
         std::memcpy(static_cast<void *>(data_ + size_), source, count * sizeof(T));
      }
      size_ += count;
   }
   // Drops the elements from size on.
   void Truncate(std::size_t size) {
      if (size < size_) {
         size_ = size;
      }
   }

   std::size_t Size() const { return size_; }
   std::size_t Capacity() const { return bytes_ / sizeof(T); }
   T *Data() { return data_; }
   const T *Data() const { return data_; }
   T &operator[](std::size_t index) { return data_[index]; }
   const T &operator[](std::size_t index) const { return data_[index]; }
   std::span<T> Span() { return {data_, size_}; }
   std::span<const T> Span() const { return {data_, size_}; }

private:
   T *data_ = nullptr;
   std::size_t size_ = 0;
   std::size_t bytes_ = 0;
};

}  // namespace world
