// Documents held against their layout: every violation, not only the first.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "documents/layout.h"

namespace emulator {

// The rules; the rows of a layout say where each of them applies.
struct StrictRule {
  std::string_view name;
  std::string_view meaning;
};
namespace rule {
inline constexpr StrictRule kByteOrderMark{"byte-order-mark", "the document begins without one"};
inline constexpr StrictRule kEncoding{
    "encoding", "the bytes fit the encoding that the document declares, UTF-8 if it declares none"};
inline constexpr StrictRule kXml{"xml", "the document is well-formed"};
inline constexpr StrictRule kNotInLayout{"not-in-layout",
                                         "a group holds only elements of the layout that the document names"};
inline constexpr StrictRule kOutOfOrder{"out-of-order",
                                        "the elements of a group stand in the order of the table"};
inline constexpr StrictRule kMissing{"missing", "what is required is there"};
inline constexpr StrictRule kTooMany{"too-many", "nothing occurs more often than it may"};
inline constexpr StrictRule kAlternatives{"alternatives",
                                          "of alternatives there is exactly one, or at most one"};
inline constexpr StrictRule kFormat{"format", "a value has its form and length"};
inline constexpr StrictRule kAmounts{
    "amounts", "what the device reckons with holds: item numbers, values, rates, payments against the total"};
inline constexpr std::array kAll{kByteOrderMark, kEncoding, kXml,          kNotInLayout, kOutOfOrder,
                                 kMissing,       kTooMany,  kAlternatives, kFormat,      kAmounts};
}  // namespace rule

struct Violation {
  std::string_view rule;
  Cause cause;
  std::string field;
  std::string expected;  // empty: the rule says it all
};

// In the order of the document; empty if it keeps to the layout.
std::vector<Violation> violations(std::string_view xml, const Layout& layout);

}  // namespace emulator
