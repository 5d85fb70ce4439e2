// The packed loops' row walk and weight dispatch, the same at every level: a level
// supplies its row kernel and gets an operation's PackedLoop. Internal linkage:
// each level's file keeps its own copy, built for its own instruction set.
#pragma once

#include <type_traits>

#include "blend/blendf.h"

namespace tarnell::blendf {
namespace {

template <PackedWeight W>
using Weight = std::integral_constant<PackedWeight, W>;

// row(Weight<W>{}, std::bool_constant<SourcePlane>{}, d, s, constant, m, k, columns)
// runs one row; SourcePlane false reads `constant` for every source sample. An
// operation without weights (the minimum) runs weight none on its source plane.
template <bool NoWeights, class Row>
void packedLoopOf(const PackedPlanes& p, PackedWeight w, Row row) {
  auto rows = [&](auto weight, auto sourcePlane) {
    constexpr PackedWeight kWeight = decltype(weight)::value;
    float* d = p.destination;
    const float* s = p.source;
    const float* m = p.mask;
    for (int32_t r = 0; r < p.rows; ++r) {
      row(weight, sourcePlane, d, s, p.constant, m, p.k, p.columns);
      d += p.destinationRow;
      if constexpr (decltype(sourcePlane)::value) s += p.sourceRow;
      if constexpr (kWeight == PackedWeight::mask || kWeight == PackedWeight::opacityMask) m += p.maskRow;
    }
  };
  const bool source = p.source != nullptr;
  if constexpr (NoWeights) {
    rows(Weight<PackedWeight::none>{}, std::true_type{});
  } else {
    switch (w) {
      case PackedWeight::none:
        return rows(Weight<PackedWeight::none>{}, std::true_type{});
      case PackedWeight::opacity:
        return source ? rows(Weight<PackedWeight::opacity>{}, std::true_type{})
                      : rows(Weight<PackedWeight::opacity>{}, std::false_type{});
      case PackedWeight::mask:
        return rows(Weight<PackedWeight::mask>{}, std::true_type{});
      case PackedWeight::opacityMask:
        return source ? rows(Weight<PackedWeight::opacityMask>{}, std::true_type{})
                      : rows(Weight<PackedWeight::opacityMask>{}, std::false_type{});
    }
  }
}

}  // namespace
}  // namespace tarnell::blendf
