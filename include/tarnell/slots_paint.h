// Slot signatures and shared record types of the painting routines ('pntg').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

// The host's paint record, handed to every paint routine as its last argument.
// One layout serves all of them; each routine reads only the fields it names.
// Strides are in bytes and signed (rows may go down in memory); 16-bit planes
// step rows by the stride rounded down to an even number of bytes.
struct PaintRecord {
  // The coverage mask of the dab at the rectangle's first pixel: one byte per
  // pixel for 8-bit painting, one 16-bit value (0..32768) for 16-bit painting.
  const void* mask;
  int32_t maskStride;
  // Families S and T: every source channel's rows are sourceStride apart, and
  // source[k] is channel k's first sample of the rectangle (the worker's second
  // argument picks k). The samples are the destination's size.
  int32_t sourceStride;
  const void* const* source;
  // Slots 18 and 92: the buffer whose rows they move (8-bit and 16-bit samples),
  // buffer row n starting at buffer + n * bufferStride.
  void* buffer;
  int32_t bufferStride;
  int32_t reserved;  // zero
};
static_assert(sizeof(PaintRecord) == 40 && offsetof(PaintRecord, mask) == 0 &&
              offsetof(PaintRecord, maskStride) == 8 && offsetof(PaintRecord, sourceStride) == 12 &&
              offsetof(PaintRecord, source) == 16 && offsetof(PaintRecord, buffer) == 24 &&
              offsetof(PaintRecord, bufferStride) == 32);

// Argument shapes. Every worker takes the rectangle's five leading values first:
// a0 (read by nobody), x and y for the dither start (family R has its threshold
// in place of x; families S and T their source channel, which is x as well), rows
// and columns. Families S and T have one more leading value, a5, read by nobody.
// Then the plane, its stride, its values and the record. The three- and
// four-plane companions take their N planes in place of the one, one stride for
// all of them, and (P, Q, R) one colour per plane after it. Colours, opacities
// and thresholds are 32-bit: the 8-bit routines use their low byte, the 16-bit
// ones their low 16 bits.
#define TARNELL_PAINT_PLANES1(T) T* plane
#define TARNELL_PAINT_PLANES3(T) T* plane0, T* plane1, T* plane2
#define TARNELL_PAINT_PLANES4(T) T* plane0, T* plane1, T* plane2, T* plane3
#define TARNELL_PAINT_COLOURS1 uint32_t colour
#define TARNELL_PAINT_COLOURS3 uint32_t colour0, uint32_t colour1, uint32_t colour2
#define TARNELL_PAINT_COLOURS4 uint32_t colour0, uint32_t colour1, uint32_t colour2, uint32_t colour3
// Expands the argument macros before TARNELL_SLOT turns them into text.
#define TARNELL_PAINT_SLOT(...) TARNELL_SLOT(__VA_ARGS__)
#define TARNELL_PAINT_P(SLOT, NAME, T, N) TARNELL_PAINT_SLOT(pntg, SLOT, NAME, void, int32_t a0, int32_t x, int32_t y, int32_t rows, int32_t columns, TARNELL_PAINT_PLANES##N(T), int32_t stride, TARNELL_PAINT_COLOURS##N, uint32_t opacity, const PaintRecord* record)
#define TARNELL_PAINT_Q(SLOT, NAME, T, N) TARNELL_PAINT_SLOT(pntg, SLOT, NAME, void, int32_t a0, int32_t x, int32_t y, int32_t rows, int32_t columns, TARNELL_PAINT_PLANES##N(T), int32_t stride, TARNELL_PAINT_COLOURS##N, const PaintRecord* record)
#define TARNELL_PAINT_R(SLOT, NAME, T, N) TARNELL_PAINT_SLOT(pntg, SLOT, NAME, void, int32_t a0, int32_t threshold, int32_t y, int32_t rows, int32_t columns, TARNELL_PAINT_PLANES##N(T), int32_t stride, TARNELL_PAINT_COLOURS##N, const PaintRecord* record)
#define TARNELL_PAINT_S(SLOT, NAME, T, N) TARNELL_PAINT_SLOT(pntg, SLOT, NAME, void, int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, TARNELL_PAINT_PLANES##N(T), int32_t stride, const PaintRecord* record)
#define TARNELL_PAINT_T(SLOT, NAME, T, N) TARNELL_PAINT_SLOT(pntg, SLOT, NAME, void, int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, TARNELL_PAINT_PLANES##N(T), int32_t stride, uint32_t opacity, const PaintRecord* record)

// A family: the worker and its companions, 8-bit and 16-bit.
#define TARNELL_PAINT_FAMILY(F, S8, S8X3, S8X4, S16, S16X3, S16X4) \
  TARNELL_PAINT_##F(S8, Paint##F##8, uint8_t, 1)                  \
  TARNELL_PAINT_##F(S8X3, Paint##F##8x3, uint8_t, 3)              \
  TARNELL_PAINT_##F(S8X4, Paint##F##8x4, uint8_t, 4)              \
  TARNELL_PAINT_##F(S16, Paint##F##16, uint16_t, 1)               \
  TARNELL_PAINT_##F(S16X3, Paint##F##16x3, uint16_t, 3)           \
  TARNELL_PAINT_##F(S16X4, Paint##F##16x4, uint16_t, 4)

TARNELL_PAINT_FAMILY(P, 10, 28, 29, 61, 62, 63)
TARNELL_PAINT_FAMILY(Q, 4, 26, 27, 55, 56, 57)
TARNELL_PAINT_FAMILY(R, 7, 24, 25, 58, 59, 60)
TARNELL_PAINT_FAMILY(S, 17, 34, 35, 84, 85, 86)
TARNELL_PAINT_FAMILY(T, 13, 36, 37, 87, 88, 89)

// Single entries. 5 and 81 have family Q's shape (81 ignores x and y), 9 family R's.
TARNELL_PAINT_Q(5, PaintSingle5, uint8_t, 1)
TARNELL_PAINT_Q(81, PaintSingle81, uint16_t, 1)
TARNELL_PAINT_R(9, PaintSingle9, uint8_t, 1)
// 18 and 92 move row xRow + i of the record's buffer toward row yRow + i, for
// i = 0 .. count - 1, over width samples from column offset. offset2 moves
// nothing: with offset it is the (x, y) of 18's dither start.
TARNELL_SLOT(pntg, 18, PaintSingle18, void, int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t offset2, int32_t width, int32_t weight, const PaintRecord* record)
TARNELL_SLOT(pntg, 92, PaintSingle92, void, int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t offset2, int32_t width, int32_t weight, const PaintRecord* record)
// Slots 38 and 79 keep the host's routines behind forwarders: only their
// argument shapes are known.
TARNELL_FORWARDED_SLOT(pntg, 38, PaintSingle38)
TARNELL_FORWARDED_SLOT(pntg, 79, PaintSingle79)

}  // namespace tarnell
