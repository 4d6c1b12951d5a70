#include "skein/Skein.h"

#include <pthread.h>

#include <exception>
#include <utility>

namespace Skein {

namespace {

constexpr std::size_t kPrivateRingBytes = 64 * 1024;

Braid::Ring* leftByParent = nullptr;  // in a child process: the parent's ring, until its sites are copied

}  // namespace

constinit Braid::Ring* Message::current_ = nullptr;

Braid::Ring* Message::ringAtFirst() noexcept {
  static const bool forksFollowed = [] {
    // The child shares the mapping with its parent, and a ring has one writer.
    const auto inChild = [] {
      if (current_ != nullptr) leftByParent = std::exchange(current_, nullptr);
    };
    return pthread_atfork(nullptr, nullptr, inChild) == 0;
  }();
  try {
    current_ = forksFollowed ? Braid::Ring::makePrivate(kPrivateRingBytes).release() : nullptr;
  } catch (const std::exception&) {
    return nullptr;  // tracing must not stop its caller: this message is lost, the next one tries again
  }
  if (leftByParent != nullptr) {
    current_->takeSites(*leftByParent);
    delete std::exchange(leftByParent, nullptr);
  }
  return current_;
}

void ringIs(const std::string& path, std::size_t bytes) {
  Braid::Ring* const old = Message::ring();
  auto ring = Braid::Ring::makeFile(path, bytes);
  if (old != nullptr) {
    ring->takeSites(*old);
    ring->takeRecords(*old);
  }
  Message::current_ = ring.release();
  delete old;
}

std::uint32_t Site::numberAtFirst(Braid::Ring& ring) const noexcept {
  const std::uint32_t number = ring.site(source_, line_, function_, format_);
  number_.store(number, std::memory_order_relaxed);
  return number;
}

void traceText(Message& message, const EthAddr& address) noexcept {
  EthAddr::Text text;
  message.put(address.toText(text));
}

void traceText(Message& message, const IpGenAddr& address) noexcept {
  IpGenAddr::Text text;
  message.put(address.toText(text));
}

}  // namespace Skein
