#include <cstdlib>
#include <new>
#include <utility>

#include "support/interpose.h"

namespace {

thread_local long made = 0;
thread_local long freed = 0;
thread_local long left = -1;  // allocations before the one that fails; below zero, none fails
thread_local bool failed = false;

}  // namespace

namespace ecu::vorn::ipc::test {

long Allocations::count() { return made; }
long Allocations::live() { return made - freed; }
void Allocations::fail_after(long more) { left = more; }
bool Allocations::has_failed() {
  left = -1;
  return std::exchange(failed, false);
}

}  // namespace ecu::vorn::ipc::test

// Not inline: GCC would take the inlined calls of malloc and free for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  const bool fails = left >= 0 && left-- == 0;
  void* const memory = fails ? nullptr : std::malloc(size);
  if (fails) failed = true;
  if (memory == nullptr) throw std::bad_alloc();
  ++made;
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  if (memory != nullptr) ++freed;
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
