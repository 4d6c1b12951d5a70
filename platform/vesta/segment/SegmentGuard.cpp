#include "vesta/segment/SegmentGuard.h"

#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <cerrno>

#include "cairn/Exception.h"

namespace Vesta {

// A place is one word, so that the handler, which may interrupt any instruction of any thread, never sees
// half of a change: page of the beginning (36 bits), pages (26), lost, of a writer. 0 is a free place. Places
// are re-used, never freed.
struct GuardedMapping::Place {
  static constexpr Word kOfWriter = 1;
  static constexpr Word kLost = 2;
  static constexpr Word kPageSize = kPageWords * sizeof(Word);

  static Word packed(const Word* begin, std::size_t words, bool ofWriter) {
    const Word page = reinterpret_cast<std::uintptr_t>(begin) / kPageSize;
    return page << 28 | Word{words / kPageWords} << 2 | (ofWriter ? kOfWriter : 0);
  }
  static std::uintptr_t beginOf(Word mapping) { return (mapping >> 28) * kPageSize; }
  static std::uintptr_t endOf(Word mapping) {
    return beginOf(mapping) + (mapping >> 2 & 0x3ffffff) * kPageSize;
  }

  std::atomic<Word> mapping{0};
  Place* next = nullptr;
};

class SegmentGuard {
 public:
  using Place = GuardedMapping::Place;

  static Place& take(Word mapping) {
    for (Place* place = places_.load(std::memory_order_acquire); place != nullptr; place = place->next) {
      Word free = 0;
      if (place->mapping.compare_exchange_strong(free, mapping, std::memory_order_acq_rel)) return *place;
    }
    auto* const place = new Place;
    place->mapping.store(mapping, std::memory_order_relaxed);
    place->next = places_.load(std::memory_order_relaxed);
    while (!places_.compare_exchange_weak(place->next, place, std::memory_order_release)) {
    }
    return *place;
  }

  static void install() {
    struct sigaction action {};
    action.sa_sigaction = handle;
    // NODEFER: the handler itself may touch a page that is lost.
    action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
    if (sigaction(SIGBUS, &action, &before_) != 0) throw Cairn::SystemException("handle SIGBUS", errno);
  }

 private:
  // Async-signal-safe.
  static void handle(int, siginfo_t* info, void*) {
    const int error = errno;
    const bool replaced = info->si_code == BUS_ADRERR && replaceLost(info->si_addr);
    errno = error;
    if (replaced) return;
    sigaction(SIGBUS, &before_, nullptr);     // the access is repeated, with the effect that it had before
    if (info->si_code <= 0) ::raise(SIGBUS);  // sent by a process
  }

  // The pages after the one that was accessed are lost, too. Lost pages before it are replaced when they are
  // accessed.
  static bool replaceLost(const void* accessed) {
    const auto at = reinterpret_cast<std::uintptr_t>(accessed);
    for (Place* place = places_.load(std::memory_order_acquire); place != nullptr; place = place->next) {
      const Word mapping = place->mapping.load(std::memory_order_acquire);
      if (at < Place::beginOf(mapping) || at >= Place::endOf(mapping)) continue;
      const std::uintptr_t page = at / Place::kPageSize * Place::kPageSize;
      void* const zeros = mmap(reinterpret_cast<void*>(page), Place::endOf(mapping) - page,
                               PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
      if (zeros == MAP_FAILED) return false;
      place->mapping.fetch_or(Place::kLost, std::memory_order_acq_rel);
      if ((mapping & Place::kOfWriter) != 0) {
        auto* const words = reinterpret_cast<Word*>(Place::beginOf(mapping));
        std::atomic_ref<Word>(words[kSleepersAt]).fetch_or(kDamageReported);
      }
      return true;
    }
    return false;
  }

  static inline std::atomic<Place*> places_{nullptr};
  static inline struct sigaction before_ {};
};

void installSegmentGuard() { [[maybe_unused]] static const bool installed = (SegmentGuard::install(), true); }

GuardedMapping::GuardedMapping(const Word* begin, std::size_t words, bool ofWriter)
    : place_(SegmentGuard::take(Place::packed(begin, words, ofWriter))) {}

GuardedMapping::~GuardedMapping() { place_.mapping.store(0, std::memory_order_release); }

bool GuardedMapping::lostMemory() const noexcept {
  return (place_.mapping.load(std::memory_order_relaxed) & Place::kLost) != 0;
}

}  // namespace Vesta
