// Codes and their names, for the tables of this folder's sources.
#ifndef PLATFORM_GIGE_PROTOCOL_NAMES_H
#define PLATFORM_GIGE_PROTOCOL_NAMES_H

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace gige_protocol {

template <class code_type>
struct named {
  code_type code;
  const char* name;
};

// The name of a code; `unknown` for one that the table does not have.
template <class code_type, std::size_t size>
constexpr const char* look_up(const named<code_type> (&table)[size], code_type code, const char* unknown) {
  const auto* const found = std::ranges::find(table, code, &named<code_type>::code);
  return found != std::end(table) ? found->name : unknown;
}

}  // namespace gige_protocol

#endif
