#include "support/freed_memory.h"

#include <malloc.h>
#include <string.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace Tarnvale::KioskService::FreedMemory {
namespace {

// Nothing here may allocate. The length counts for a text that was set before it.
std::atomic<const char*> wanted{nullptr};
std::atomic<std::size_t> wantedLength{0};
std::atomic<int> found{0};

}  // namespace

void LookFor(std::string_view text) {
  wantedLength = 0;
  wanted = text.data();
  found = 0;
  wantedLength = text.size();
}

int Found() {
  return found;
}

static void* Take(std::size_t size) {
  void* const block = std::malloc(size > 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

static void GiveBack(void* block) noexcept {
  const std::size_t length = wantedLength;
  if (block != nullptr && length > 0 &&
      ::memmem(block, ::malloc_usable_size(block), wanted, length) != nullptr) {
    found.fetch_add(1);
  }
  std::free(block);
}

}  // namespace Tarnvale::KioskService::FreedMemory

namespace FreedMemory = Tarnvale::KioskService::FreedMemory;

void* operator new(std::size_t size) {
  return FreedMemory::Take(size);
}
void* operator new[](std::size_t size) {
  return FreedMemory::Take(size);
}
void operator delete(void* block) noexcept {
  FreedMemory::GiveBack(block);
}
void operator delete[](void* block) noexcept {
  FreedMemory::GiveBack(block);
}
void operator delete(void* block, std::size_t) noexcept {
  FreedMemory::GiveBack(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  FreedMemory::GiveBack(block);
}
