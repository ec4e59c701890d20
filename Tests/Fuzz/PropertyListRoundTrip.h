// The property that both fuzz targets of property lists check.
#pragma once

#include "Foundation/PropertyLists/PropertyList.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace kwtest {

inline void checkRoundTrip(std::string_view data) {
  auto list = NS::propertyListWithData(data, nullptr);
  if (!list)
    return;
  static_cast<void>(NS::describe(*list));
  auto text = NS::dataWithPropertyList(*list, nullptr);
  if (!text) // strings that XML cannot hold
    return;
  // Escapes can make a list longer than the reader takes.
  constexpr std::size_t readable = 8u << 20;
  auto back = NS::propertyListWithData(*text, nullptr);
  if (back ? *back == *list : text->size() > readable)
    return;
  std::fprintf(stderr, "the list does not read back equal:\n%s", text->c_str());
  std::abort();
}

} // namespace kwtest
