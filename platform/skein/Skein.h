// Fast trace: always on, cheap enough for every entry point. Each message is a record in a ring in a mapped
// file (RingFormat.h), which can be read while the process runs and after it has ended (TraceReader.h).
//
//   static constinit const Skein::Site site{"./P4RuntimePlugin/VrfSm", 24, "handleEntry", "add vrf %s"};
//   Skein::message(site, entry->vrf);
//
// Thread safety: one thread of a process traces. A message neither allocates nor locks nor throws. After a
// fork the child traces into a ring of its own.
#pragma once

#include <atomic>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "cairn/EthAddr.h"
#include "cairn/IpGenAddr.h"
#include "skein/Ring.h"

namespace Skein {

/// One place in the code that traces; must be static. Its texts are copied into the ring at its first
/// message, so the library that contains it may be unloaded. Every value in the format is a "%s".
class Site {
 public:
  constexpr Site(std::string_view source, std::uint32_t line, std::string_view function,
                 std::string_view format)
      : source_(source), function_(function), format_(format), line_(line) {}

 private:
  friend class Message;
  std::uint32_t numberIn(Braid::Ring& ring) const noexcept {
    const std::uint32_t known = number_.load(std::memory_order_relaxed);
    return known != 0 ? known : numberAtFirst(ring);
  }
  std::uint32_t numberAtFirst(Braid::Ring& ring) const noexcept;

  std::string_view source_;
  std::string_view function_;
  std::string_view format_;
  std::uint32_t line_;
  mutable std::atomic<std::uint32_t> number_{0};
};

/// Sends all further messages to a ring of `bytes` in the file `path`, and copies earlier ones into it as far
/// as there is room. Errors as for Braid::Ring::makeFile; the current ring then stays in use. Before the
/// first call messages go to a small ring in memory.
void ringIs(const std::string& path, std::size_t bytes);

/// A message that is being written. A type can be traced if there is a function
/// `void traceText(Skein::Message&, const Type&)` in its namespace, which calls put().
class Message {
 public:
  explicit Message(const Site& site) noexcept : ring_(ring()) {
    if (ring_ == nullptr) return;
    ticks_ = Braid::ticks();
    begin_ = ring_->room();
    at_ = begin_ + sizeof(Braid::RecordHeader);
    end_ = begin_ + Braid::kMaxRecordBytes;
    site_ = site.numberIn(*ring_);
  }
  ~Message() {
    if (ring_ == nullptr) return;
    const auto used = static_cast<std::size_t>(at_ - begin_);
    const std::size_t bytes = Braid::alignedBytes(used);
    // Constructed in place: copying a temporary would wait for the stores that built it.
    new (begin_) Braid::RecordHeader{ring_->head(), ticks_, site_, static_cast<std::uint16_t>(bytes),
                                     static_cast<std::uint16_t>(used - sizeof(Braid::RecordHeader))};
    ring_->publish(bytes, ticks_);
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  /// Adds one value, truncated if the record is full.
  template <class Value>
  void value(const Value& value) noexcept {
    if (end_ - at_ < 2) return;
    char* const length = at_;
    at_ += 2;
    traceText(*this, value);
    const auto bytes = static_cast<std::uint16_t>(at_ - length - 2);
    std::memcpy(length, &bytes, sizeof bytes);
  }

  /// Appends to the text of the current value.
  void put(std::string_view text) noexcept {
    const auto left = static_cast<std::size_t>(end_ - at_);
    const std::size_t bytes = text.size() < left ? text.size() : left;
    copyShort(at_, text.data(), bytes);
    at_ += bytes;
  }
  void put(std::uint64_t number) noexcept {
    const auto result = std::to_chars(at_, end_, number);
    if (result.ec == std::errc()) at_ = result.ptr;
  }

 private:
  // Most values are short: two copies of fixed size cost less than a call.
  static void copyShort(char* to, const char* from, std::size_t bytes) noexcept {
    if (bytes > 16) {
      std::memcpy(to, from, bytes);
    } else if (bytes >= 8) {
      copyEnds<8>(to, from, bytes);
    } else if (bytes >= 4) {
      copyEnds<4>(to, from, bytes);
    } else {
      for (std::size_t i = 0; i < bytes; ++i) to[i] = from[i];
    }
  }
  template <std::size_t kBytes>
  static void copyEnds(char* to, const char* from, std::size_t bytes) noexcept {
    char head[kBytes];
    char tail[kBytes];
    std::memcpy(head, from, kBytes);
    std::memcpy(tail, from + bytes - kBytes, kBytes);
    std::memcpy(to, head, kBytes);
    std::memcpy(to + bytes - kBytes, tail, kBytes);
  }
  static Braid::Ring* ring() noexcept {
    Braid::Ring* const current = current_;
    return current != nullptr ? current : ringAtFirst();
  }
  static Braid::Ring* ringAtFirst() noexcept;
  friend void ringIs(const std::string& path, std::size_t bytes);

  static constinit Braid::Ring* current_;  // owned; never destroyed

  Braid::Ring* ring_;
  char* begin_ = nullptr;
  char* at_ = nullptr;
  char* end_ = nullptr;
  std::uint64_t ticks_ = 0;
  std::uint32_t site_ = 0;
};

inline void traceText(Message& message, std::string_view text) noexcept { message.put(text); }
template <std::integral Number>
void traceText(Message& message, Number number) noexcept {
  if constexpr (std::same_as<Number, bool>) {
    return message.put(number ? "true" : "false");
  } else if constexpr (std::signed_integral<Number>) {
    if (number < 0) {
      message.put("-");
      return message.put(~static_cast<std::uint64_t>(number) + 1);
    }
  }
  message.put(static_cast<std::uint64_t>(number));
}
void traceText(Message& message, const EthAddr& address) noexcept;
void traceText(Message& message, const IpGenAddr& address) noexcept;

/// Traces `values` at `site`.
template <class... Values>
void message(const Site& site, const Values&... values) noexcept {
  Message record(site);
  (record.value(values), ...);
}

}  // namespace Skein
