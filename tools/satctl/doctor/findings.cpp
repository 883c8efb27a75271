#include "doctor/findings.h"

#include <algorithm>

#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

Colour colour_of(Grade grade) {
  constexpr Colour kColours[] = {Colour::green, Colour::yellow, Colour::red};
  return kColours[static_cast<std::size_t>(grade)];
}

}  // namespace

Grade worst(const std::vector<Finding>& findings) {
  Grade grade = Grade::ok;
  for (const Finding& finding : findings) grade = std::max(grade, finding.grade);
  return grade;
}

std::string as_text(const std::vector<Finding>& findings, bool in_colour) {
  std::string text;
  for (const Finding& finding : findings) {
    const std::string grade = padded(grade_name(finding.grade), 5);
    text += (in_colour ? coloured(colour_of(finding.grade), grade) : grade) +
            padded(finding.id.substr(0, finding.id.find('.')), 14) + " " + finding.text + "\n";
    if (!finding.remedy.empty()) text += "                     -> " + finding.remedy + "\n";
  }
  return text;
}

nlohmann::ordered_json as_json(const std::vector<Finding>& findings) {
  nlohmann::ordered_json object{{"worst", grade_name(worst(findings))},
                                {"checks", nlohmann::ordered_json::array()}};
  for (const Finding& finding : findings) {
    object["checks"].push_back({{"id", finding.id},
                                {"grade", grade_name(finding.grade)},
                                {"text", valid_utf8(finding.text)},
                                {"remedy", valid_utf8(finding.remedy)}});
  }
  return object;
}

}  // namespace satctl
