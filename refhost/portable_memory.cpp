// The host's portable memory primitives ('memo'): element loops written from the
// contracts, one element at a time. Slots 0 (byte copy) and 3 (byte fill) are
// host services and live in refhost.cpp; the block forms here go through them.
//
// Contracts decided here (see docs/contracts.md):
// - Row steps are in bytes. A block is one run when its row step equals the row's
//   width in bytes and rows x width is below 0x7FFFFFFF; otherwise it is handled
//   row by row, top row first. For copies this matters when source and destination
//   overlap across rows: one run copies as through a temporary, row by row copies
//   each row that way in turn.
// - Rows or width below 1: nothing is written; tests answer true (slot 83: 0).
// - Slot 36: bottom and right are one past the last differing row and column, so
//   an all-equal block's (rows, width, 0, 0) is the empty rectangle; values are
//   stored as 16 bits. Nothing is written for an empty block or a null result.
// - Slot 135: an empty block answers true, written to the result byte if given.
// - Slots 83 and 102 first pass their four block arguments (integers
//   sign-extended) to the host's 'core' slot 0 and ignore its result.
#include <cstring>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

using Byte = unsigned char;

const Byte* rowOf(const void* base, int32_t row, int32_t step) {
  return static_cast<const Byte*>(base) + static_cast<std::ptrdiff_t>(row) * step;
}
Byte* rowOf(void* base, int32_t row, int32_t step) {
  return static_cast<Byte*>(base) + static_cast<std::ptrdiff_t>(row) * step;
}

bool oneRun(int32_t rows, int32_t width, int32_t step, int64_t elementBytes) {
  return int64_t{step} == int64_t{width} * elementBytes && int64_t{rows} * int64_t{width} < 0x7FFFFFFF;
}

// The host's own routine of a slot (what its table held before any module wrote).
template <auto Id>
SlotFnOf<Id> hostSlot() {
  return reinterpret_cast<SlotFnOf<Id>>(ReferenceHost::active()->original(decltype(Id)::suite, decltype(Id)::number));
}

template <typename T>
T elementAt(const Byte* p, int32_t i) {
  T v;
  std::memcpy(&v, p + static_cast<std::ptrdiff_t>(i) * static_cast<std::ptrdiff_t>(sizeof(T)), sizeof v);
  return v;
}

template <typename T>
void fillElements(void* destination, int32_t count, T value) {
  auto* d = static_cast<Byte*>(destination);
  for (int32_t i = 0; i < count; ++i) std::memcpy(d + static_cast<std::ptrdiff_t>(i) * static_cast<std::ptrdiff_t>(sizeof(T)), &value, sizeof value);
}

template <typename T>
void fillElementBlock(void* destination, int32_t rows, int32_t width, int32_t step, T value) {
  if (rows < 1 || width < 1) return;
  if (oneRun(rows, width, step, sizeof(T))) {
    fillElements(destination, rows * width, value);
    return;
  }
  for (int32_t r = 0; r < rows; ++r) fillElements(rowOf(destination, r, step), width, value);
}

// Every element of the block equals value (rows and width at least 1).
template <typename T>
bool blockEquals(const void* address, int32_t rows, int32_t width, int32_t step, T value) {
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < width; ++c)
      if (elementAt<T>(rowOf(address, r, step), c) != value) return false;
  return true;
}

// --- routines ---------------------------------------------------------------

// Slot 1: the copy goes through slot 0 (a copy as through a temporary), once for
// the whole block or once per row.
void copyBlock(const void* source, void* destination, int32_t rows, int32_t widthBytes, int32_t sourceStep,
               int32_t destinationStep) {
  if (source == destination || rows < 1 || widthBytes < 1) return;
  const auto copy = hostSlot<slot::copyBytes>();
  if (sourceStep == widthBytes && destinationStep == widthBytes && oneRun(rows, widthBytes, widthBytes, 1)) {
    copy(source, destination, rows * widthBytes);
    return;
  }
  for (int32_t r = 0; r < rows; ++r)
    copy(rowOf(source, r, sourceStep), rowOf(destination, r, destinationStep), widthBytes);
}

// Slot 4.
void fillBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint8_t value) {
  fillElementBlock<uint8_t>(destination, rows, width, step, value);
}

// Slot 17.
uint8_t bytesAllEqual(const void* address, int32_t count, uint8_t value) {
  const auto* p = static_cast<const Byte*>(address);
  for (int32_t i = 0; i < count; ++i)
    if (p[i] != value) return 0;
  return 1;
}

// Slot 18.
uint8_t blockBytesAllEqual(const void* address, int32_t rows, int32_t width, int32_t step, uint8_t value) {
  if (rows < 1 || width < 1) return 1;
  return blockEquals<uint8_t>(address, rows, width, step, value) ? 1 : 0;
}

// Slot 36: (top, left, bottom, right), bottom and right exclusive.
void byteBounds(const void* address, int32_t rows, int32_t width, int32_t step, uint8_t value, int16_t* bounds) {
  if (bounds == nullptr || rows < 1 || width < 1) return;
  int32_t top = rows, left = width, bottom = 0, right = 0;
  for (int32_t r = 0; r < rows; ++r) {
    const Byte* p = rowOf(address, r, step);
    for (int32_t c = 0; c < width; ++c) {
      if (p[c] == value) continue;
      if (r < top) top = r;
      if (r + 1 > bottom) bottom = r + 1;
      if (c < left) left = c;
      if (c + 1 > right) right = c + 1;
    }
  }
  bounds[0] = static_cast<int16_t>(top);
  bounds[1] = static_cast<int16_t>(left);
  bounds[2] = static_cast<int16_t>(bottom);
  bounds[3] = static_cast<int16_t>(right);
}

// Slot 65.
void fillWords(void* destination, int32_t count, uint16_t value) { fillElements<uint16_t>(destination, count, value); }

// Slot 66.
void fillWordBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint16_t value) {
  fillElementBlock<uint16_t>(destination, rows, width, step, value);
}

void notifyCore(const void* address, int32_t rows, int32_t width, int32_t step) {
  hostSlot<slot::notifyBuffer>()(reinterpret_cast<uintptr_t>(address), static_cast<uintptr_t>(intptr_t{rows}),
                            static_cast<uintptr_t>(intptr_t{width}), static_cast<uintptr_t>(intptr_t{step}));
}

// Slot 83: the block's one 16-bit value, or 0xFFFFFFFF; 0 for an empty block.
uint32_t blockWordsUniformValue(const void* address, int32_t rows, int32_t width, int32_t step) {
  notifyCore(address, rows, width, step);
  if (rows < 1 || width < 1) return 0;
  const auto reference = elementAt<uint16_t>(static_cast<const Byte*>(address), 0);
  return blockEquals<uint16_t>(address, rows, width, step, reference) ? reference : 0xFFFFFFFFu;
}

// Slot 102.
uint8_t blockWordsAllEqual(const void* address, int32_t rows, int32_t width, int32_t step, uint16_t value) {
  notifyCore(address, rows, width, step);
  if (rows < 1 || width < 1) return 1;
  return blockEquals<uint16_t>(address, rows, width, step, value) ? 1 : 0;
}

// Slot 135.
uint8_t blockDwordsUniform(const void* address, int32_t rows, int32_t width, int32_t step, uint8_t* result) {
  uint8_t answer = 1;
  if (rows >= 1 && width >= 1)
    answer = blockEquals<uint32_t>(address, rows, width, step, elementAt<uint32_t>(static_cast<const Byte*>(address), 0))
                 ? 1
                 : 0;
  if (result != nullptr) *result = answer;
  return answer;
}

// Slot 136.
void fillDwords(void* destination, int32_t count, uint32_t value) { fillElements<uint32_t>(destination, count, value); }

// Slot 137.
void fillDwordBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint32_t value) {
  fillElementBlock<uint32_t>(destination, rows, width, step, value);
}

const PortableRoutine kMemory[] = {
    portable(slot::copyBlock, &copyBlock),
    portable(slot::fillBlock, &fillBlock),
    portable(slot::bytesAllEqual, &bytesAllEqual),
    portable(slot::blockBytesAllEqual, &blockBytesAllEqual),
    portable(slot::byteBounds, &byteBounds),
    portable(slot::fillWords, &fillWords),
    portable(slot::fillWordBlock, &fillWordBlock),
    portable(slot::blockWordsUniformValue, &blockWordsUniformValue),
    portable(slot::blockWordsAllEqual, &blockWordsAllEqual),
    portable(slot::blockDwordsUniform, &blockDwordsUniform),
    portable(slot::fillDwords, &fillDwords),
    portable(slot::fillDwordBlock, &fillDwordBlock),
};

}  // namespace

std::span<const PortableRoutine> portableMemory() { return kMemory; }

}  // namespace tarnell::refhost
