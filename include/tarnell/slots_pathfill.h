// Slot signatures and shared record types of path filling ('path').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

// A fill array: 32-bit words laid out by the host. The header's words 1, 3 and 5
// hold the first row, the row after the last one and the words per row block; the
// row blocks follow from word 26, and after them the working space (a scratch row,
// or with a nonzero guard value: a guard word, the scratch row, and a second guard
// word rowStride + 1 words after the first).
namespace fillarray {
constexpr int kTop = 1;
constexpr int kBottom = 3;
constexpr int kRowStride = 5;
constexpr int kFirstRow = 26;
// Within a row block: the span count, the crossing count, then the spans; the
// crossings (x << 1 | direction) sit at the block's end.
constexpr int kSpanCount = 0;
constexpr int kCrossingCount = 1;
constexpr int kSpans = 2;
}  // namespace fillarray

// A knot record of slot 46: a row of doubles. Vertical coordinates of the incoming
// control point, the anchor and the outgoing control point; the anchor's horizontal
// coordinate; and the vertical bounds of the incoming and outgoing sides.
namespace knot {
constexpr int kInY = 0;
constexpr int kAnchorY = 2;
constexpr int kAnchorX = 3;
constexpr int kOutY = 4;
constexpr int kInLower = 6;
constexpr int kInUpper = 8;
constexpr int kOutLower = 10;
constexpr int kOutUpper = 12;
constexpr int kValues = 13;  // doubles a record holds at least
}  // namespace knot

// Slot 24: turns each row's crossings into spans and combines them with the row's
// spans under operation 0..3 (union, minus, intersection, exclusive or; any other
// keeps the row's spans). nonZeroWinding 0: even-odd rule.
TARNELL_SLOT(path, 24, ApplyFillArrayOperation, void, uint32_t* fillArray, uint32_t operation, int32_t nonZeroWinding)
// Slot 46: an upper bound of the crossings one row between firstRow and lastRow
// can receive (the number of vertically monotonic pieces of the path).
TARNELL_SLOT(path, 46, EstimateRowCrossings, int32_t, int32_t firstRow, int32_t lastRow, const double* const* knots, uint32_t knotCount, uint8_t closed)

// Slot 47: the row-range scan over a record of doubles; its record is the host's.
TARNELL_FORWARDED_SLOT(path, 47, pathSlot47)

}  // namespace tarnell
