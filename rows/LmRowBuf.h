// The buffer behind a row: count, length and bytes in one piece of memory.
#pragma once

#include <sys/single_threaded.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "rows/RowFormat.h"

namespace Lumen {

class LmRowBufPtr;

/// Allocates row buffers: null if refused; released with std::free.
using RowAllocator = void* (*)(std::size_t size);

/// Installs `allocator` for the whole process and returns the previous one; the default is std::malloc. Tests
/// install one that refuses. Not to be called while another thread makes rows.
RowAllocator rowAllocatorIs(RowAllocator allocator) noexcept;

namespace detail {

extern constinit RowAllocator rowAllocator;
[[noreturn]] void throwRefused(const char* call, len_t length);

}  // namespace detail

/// Created by its factories only; destroyed with its last LmRowBufPtr.
class LmRowBuf {
 public:
  /// A buffer of `length` zero bytes. Throws Cairn::MemoryResourceException "calloc() failed ...".
  static LmRowBufPtr zeroed(len_t length);
  /// The same with undefined contents, for a caller that writes every byte.
  static LmRowBufPtr toBeFilled(len_t length);
  /// A buffer of `length` bytes with undefined contents, for a copy. Throws Cairn::MemoryResourceException
  /// "malloc() failed ...".
  static LmRowBufPtr uninitialized(len_t length);

  LmRowBuf(const LmRowBuf&) = delete;
  LmRowBuf& operator=(const LmRowBuf&) = delete;

  len_t length() const noexcept { return length_; }
  std::byte* bytes() noexcept { return reinterpret_cast<std::byte*>(this + 1); }
  const std::byte* bytes() const noexcept { return reinterpret_cast<const std::byte*>(this + 1); }

 private:
  friend class LmRowBufPtr;
  explicit LmRowBuf(len_t length) noexcept : length_(length) {}
  ~LmRowBuf() = default;
  static LmRowBufPtr allocate(const char* call, len_t length);

  std::atomic<std::uint32_t> references_{1};
  len_t length_;
};

/// Shared ownership of an LmRowBuf, or none.
class LmRowBufPtr {
 public:
  constexpr LmRowBufPtr() noexcept = default;
  LmRowBufPtr(const LmRowBufPtr& other) noexcept : buffer_(other.buffer_) {
    if (buffer_ != nullptr) retain(*buffer_);
  }
  LmRowBufPtr(LmRowBufPtr&& other) noexcept : buffer_(std::exchange(other.buffer_, nullptr)) {}
  LmRowBufPtr& operator=(LmRowBufPtr other) noexcept {
    std::swap(buffer_, other.buffer_);
    return *this;
  }
  ~LmRowBufPtr() {
    if (buffer_ != nullptr) release(*buffer_);
  }

  explicit operator bool() const noexcept { return buffer_ != nullptr; }
  LmRowBuf* operator->() const noexcept { return buffer_; }
  /// True if no other pointer shares the buffer; the pointer must not be null.
  bool unique() const noexcept { return count(*buffer_) == 1; }
  /// Number of pointers that share the buffer; 0 without one.
  std::uint32_t useCount() const noexcept { return buffer_ != nullptr ? count(*buffer_) : 0; }

 private:
  friend class LmRowBuf;
  explicit LmRowBufPtr(LmRowBuf* buffer) noexcept : buffer_(buffer) {}

  // Pairs with the release in release(): an owner that finds the count at 1 sees all writes of former owners.
  static std::uint32_t count(const LmRowBuf& buffer) noexcept {
    return buffer.references_.load(std::memory_order_acquire);
  }
  // While the process has one thread, plain loads and stores suffice; locked instructions cost several times
  // a row access.
  static void retain(LmRowBuf& buffer) noexcept {
    if (__libc_single_threaded != 0) {
      buffer.references_.store(buffer.references_.load(std::memory_order_relaxed) + 1,
                               std::memory_order_relaxed);
    } else {
      buffer.references_.fetch_add(1, std::memory_order_relaxed);
    }
  }
  static void release(LmRowBuf& buffer) noexcept {
    const std::uint32_t seen = count(buffer);
    if (seen == 1) {
      std::free(&buffer);
    } else if (__libc_single_threaded != 0) {
      buffer.references_.store(seen - 1, std::memory_order_relaxed);
    } else if (buffer.references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      std::free(&buffer);
    }
  }

  LmRowBuf* buffer_ = nullptr;
};

// Not std::calloc: the C library's per-thread cache of small blocks serves malloc only.
inline LmRowBufPtr LmRowBuf::zeroed(len_t length) {
  LmRowBufPtr buffer = toBeFilled(length);
  std::memset(buffer->bytes(), 0, length);
  return buffer;
}

inline LmRowBufPtr LmRowBuf::toBeFilled(len_t length) { return allocate("calloc()", length); }

inline LmRowBufPtr LmRowBuf::uninitialized(len_t length) { return allocate("malloc()", length); }

inline LmRowBufPtr LmRowBuf::allocate(const char* call, len_t length) {
  void* const memory = detail::rowAllocator(sizeof(LmRowBuf) + length);
  if (memory == nullptr) [[unlikely]]
    detail::throwRefused(call, length);
  return LmRowBufPtr(::new (memory) LmRowBuf(length));
}

}  // namespace Lumen
