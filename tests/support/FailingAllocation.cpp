#include "tests/support/FailingAllocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace TarvexDiags::TestSupport {

namespace {

thread_local unsigned long untilFailure = 0;  // 0: none will fail
thread_local bool failed = false;
thread_local Shortage shortage = Shortage::Once;
thread_local long living = 0;

void* allocate(std::size_t size) noexcept {
  if (untilFailure != 0 && --untilFailure == 0) {
    failed = true;
    untilFailure = shortage == Shortage::ForGood ? 1 : 0;
    return nullptr;
  }
  void* const block = std::malloc(size == 0 ? 1 : size);
  living += block != nullptr ? 1 : 0;
  return block;
}

void* allocateOrThrow(std::size_t size) {
  void* const block = allocate(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void release(void* block) noexcept {
  living -= block != nullptr ? 1 : 0;
  std::free(block);
}

}  // namespace

FailingAllocation::FailingAllocation(unsigned long ordinal, Shortage kind) {
  failed = false;
  shortage = kind;
  untilFailure = ordinal;
}

FailingAllocation::~FailingAllocation() {
  untilFailure = 0;
}

bool FailingAllocation::hasFailed() const {
  return failed;
}

long livingBlocks() {
  return living;
}

}  // namespace TarvexDiags::TestSupport

using TarvexDiags::TestSupport::allocate;
using TarvexDiags::TestSupport::allocateOrThrow;
using TarvexDiags::TestSupport::release;

// For the shared libraries as well. A compiler that does not declare the sized forms itself takes
// them for functions like any others, and hides them.
#pragma GCC visibility push(default)
void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size);
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t /*size*/) noexcept {
  release(block);
}
void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
  release(block);
}
void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
  release(block);
}
#pragma GCC visibility pop
