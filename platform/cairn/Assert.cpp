#include "cairn/Assert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Cairn {

namespace {

void writeAndAbort(const char* text, const char* operation) {
  std::fprintf(stderr, "assertion failed: %s in %s\n", text, operation);
  std::abort();
}

std::atomic<FatalHandler> fatalHandler{&writeAndAbort};

}  // namespace

AssertionException::~AssertionException() = default;

FatalHandler fatalHandlerIs(FatalHandler handler) noexcept {
  return fatalHandler.exchange(handler != nullptr ? handler : &writeAndAbort);
}

void assertionFailed(const char* text, const char* operation) { throw AssertionException(text, operation); }

void fatalAssertionFailed(const char* text, const char* operation) {
  fatalHandler.load()(text, operation);
  std::abort();  // a handler that returns does not keep the process alive
}

}  // namespace Cairn
