#include "quill/NotifieeList.h"

#include <algorithm>

namespace Quill {

void NotifieeList::add(NotifieeConst* reactor) {
  reactors_.push_back(reactor);
  ++live_;
}

void NotifieeList::remove(const NotifieeConst* reactor) noexcept {
  const auto found = std::find(reactors_.begin(), reactors_.end(), reactor);
  if (found == reactors_.end()) return;
  --live_;
  if (visits_ == 0) {
    reactors_.erase(found);
  } else {
    *found = nullptr;  // positions stay as they are until the outermost visit ends
  }
}

NotifieeConst* NotifieeList::front() const noexcept {
  const auto found = std::find_if(reactors_.begin(), reactors_.end(), [](auto* r) { return r != nullptr; });
  return found == reactors_.end() ? nullptr : *found;
}

NotifieeList::Visit::~Visit() {
  if (--list_.visits_ == 0 && list_.live_ != list_.reactors_.size()) {
    std::erase(list_.reactors_, nullptr);
  }
}

NotifieeConst* NotifieeList::Visit::next() noexcept {
  while (at_ < end_) {
    if (NotifieeConst* reactor = list_.reactors_[at_++]) return reactor;
  }
  return nullptr;
}

}  // namespace Quill
