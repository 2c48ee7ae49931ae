#pragma once
// fmt support for the core's enumerations: any enum with raw texts formats as
// its raw text, so logs and sentences show exactly what goes on the wire.

#include <fmt/format.h>

#include "RawEnum.h"

template <vobbo::HasRawValues E>
struct fmt::formatter<E> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(E e, Context& ctx) const {
    return fmt::formatter<std::string_view>::format(vobbo::rawValue(e), ctx);
  }
};
