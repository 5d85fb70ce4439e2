// Fill arrays: the plain and checking builds of the fill-array operation ('path'
// slot 24), their validation, the crossing-count estimate (slot 46), and the two
// path-debug values the installer derives from the host's gestalts.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

namespace tarnell::pathfill {

// Written once by the installer, read by the checking build.
extern uint8_t pathDebugEnabled;
extern uint32_t pathDebugGuard;

SlotTypeOf<slot::ApplyFillArrayOperation> ApplyFillArrayOperation;
SlotTypeOf<slot::ApplyFillArrayOperation> CApplyFillArrayOperation;
SlotTypeOf<slot::EstimateRowCrossings> EstimateRowCrossings;

// Checks every row's crossing count and direction balance, then the guard words;
// reports with the caller's source name and line, severity 1.
void ValidateFillArray(const uint32_t* fillArray, const char* sourceName, int32_t line);
// Checks both guard words against pathDebugGuard (nothing while it is 0).
void VerifyPathFillArray(const uint32_t* fillArray, const char* sourceName, int32_t line);

// What the operations report, all under the source name "CommonPathLoops".
struct FillArrayMessage {
  const char* text;
  int32_t line;
  int32_t severity;
  bool bothBuilds;  // false: the checking build only, while debugging is on
};
enum FillArrayMessageId : int {
  kUnexpectedOperation, kRowsNotPositive, kRowCountWarning, kOddCrossings, kConvertedOverflow,
  kEdgesOverflow, kOddEdges, kNewCountWarning, kConfusedState, kOddSpans, kOldCountWarning,
  kEntriesDiffer, kFullWhileMerging, kFullDrainingOld, kFullDrainingNew, kResultOverflow, kOddResult,
  kResultCountWarning, kFillArrayMessageCount
};
extern const FillArrayMessage kFillArrayMessages[kFillArrayMessageCount];
inline constexpr char kPathSourceName[] = "CommonPathLoops";

}  // namespace tarnell::pathfill
