#include "documents/strict.h"

#include <algorithm>
#include <map>

#include "documents/encoding.h"
#include "documents/sale.h"
#include "documents/xml_element.h"

namespace emulator {

namespace {

bool chooses(const LayoutRow& row) {
  return row.presence == Presence::exactly_one || row.presence == Presence::at_most_one;
}

// A name that no table bounds goes into a reply.
std::string shortened(std::string_view name) {
  std::size_t size = std::min<std::size_t>(name.size(), 60);
  while (size < name.size() && size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0U) == 0x80U) --size;
  return std::string(name.substr(0, size));
}

class LayoutCheck {
 public:
  LayoutCheck(const Layout& layout, std::string_view version, std::vector<Violation>& found)
      : layout_(layout), version_(version), found_(found) {}

  void check_group(const Element& group, std::string_view path) {
    const auto& rows = children_of(path);
    std::vector<std::size_t> counts(rows.size(), 0);
    check_attributes(group, rows, counts);
    check_elements(group, rows, counts);
    check_counts(group, rows, counts);
  }

 private:
  using Rows = std::vector<const LayoutRow*>;

  void add(const StrictRule& rule, Cause cause, const std::string& field, const std::string& expected = {}) {
    found_.push_back({rule.name, cause, field, expected});
  }

  // Asked for once per group of every item, so each answer is kept.
  const Rows& children_of(std::string_view path) {
    const auto known = children_.find(path);
    if (known != children_.end()) return known->second;
    Rows rows = layout_.children_of(path);
    std::erase_if(rows, [this](const LayoutRow* row) { return row->since > version_; });
    return children_.emplace(path, std::move(rows)).first->second;
  }

  void check_attributes(const Element& group, const Rows& rows, std::vector<std::size_t>& counts) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (!rows[i]->is_attribute()) continue;
      const auto attribute = group.node().attribute(std::string(rows[i]->name().substr(1)).c_str());
      if (!attribute) continue;
      counts[i] = 1;
      check_value(*rows[i], attribute.value(), group.inside(std::string(rows[i]->name())));
    }
  }

  void check_elements(const Element& group, const Rows& rows, std::vector<std::size_t>& counts) {
    std::size_t latest = 0;
    for (const auto node : group.node().children()) {
      if (node.type() != pugi::node_element) continue;
      const auto row = std::find_if(rows.begin(), rows.end(),
                                    [&](const LayoutRow* r) { return r->name() == node.name(); });
      if (row == rows.end()) {
        add(rule::kNotInLayout, Cause::unknown_element, group.inside(shortened(node.name())));
        continue;
      }
      const auto place = static_cast<std::size_t>(row - rows.begin());
      const std::string number = (*row)->most > 1 ? "[" + std::to_string(counts[place] + 1) + "]" : "";
      const Element element(node, group.inside(node.name() + number));
      if (place < latest) add(rule::kOutOfOrder, Cause::element_order, element.path());
      latest = std::max(latest, place);
      if (++counts[place] > (*row)->most) continue;  // check_counts complains once
      check_element(**row, element);
    }
  }

  void check_element(const LayoutRow& row, const Element& element) {
    if (row.format.kind == Kind::group) return check_group(element, row.path);
    check_value(row, element.text(), element.path());
  }

  void check_value(const LayoutRow& row, std::string_view value, const std::string& field) {
    if (!fits(row.format, value)) add(rule::kFormat, row.misfit, field, description(row.format));
  }

  void check_counts(const Element& group, const Rows& rows, const std::vector<std::size_t>& counts) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::string name(rows[i]->name());
      if (counts[i] > rows[i]->most) {
        add(rule::kTooMany, Cause::too_many, group.inside(name), "at most " + std::to_string(rows[i]->most));
      }
      if (rows[i]->presence == Presence::required && counts[i] == 0) {
        add(rule::kMissing, Cause::missing_field, group.inside(name));
      }
      const bool first_of_choice =
          chooses(*rows[i]) && (i == 0 || rows[i - 1]->presence != rows[i]->presence);
      if (first_of_choice) check_choice(group, rows, counts, i);
    }
  }

  void check_choice(const Element& group, const Rows& rows, const std::vector<std::size_t>& counts,
                    std::size_t first) {
    const Presence presence = rows[first]->presence;
    std::string names;
    std::size_t present = 0;
    for (std::size_t i = first; i < rows.size() && rows[i]->presence == presence; ++i) {
      names += (names.empty() ? "" : ", ") + std::string(rows[i]->name());
      if (counts[i] > 0) ++present;
    }
    const bool must = presence == Presence::exactly_one;
    if (present == 1 || (present == 0 && !must)) return;
    add(rule::kAlternatives, Cause::alternatives, group.path(),
        (must ? "exactly one of: " : "at most one of: ") + names);
  }

  const Layout& layout_;
  std::string_view version_;
  std::vector<Violation>& found_;
  std::map<std::string_view, Rows> children_;
};

// The first broken rule of those that need the whole sale, unless its field has been named already.
void add_wrong_amount(const Element& group, std::vector<Violation>& found) {
  try {
    check_amounts(group);
  } catch (const Rejected& rejected) {
    const auto named = [&](const Violation& violation) { return violation.field == rejected.field(); };
    if (std::any_of(found.begin(), found.end(), named)) return;
    found.push_back({rule::kAmounts.name, rejected.cause(), rejected.field(), {}});
  }
}

// An unknown version is held against the newest layout.
std::string_view version_of(const Element& group) {
  const std::string_view version = group.node().attribute("versaoDadosEnt").value();
  return version == "0.07" ? "0.07" : kNewestLayout;
}

}  // namespace

std::vector<Violation> violations(std::string_view xml, const Layout& layout) {
  std::vector<Violation> found;
  if (xml.starts_with(kByteOrderMark)) {
    found.push_back({rule::kByteOrderMark.name, Cause::byte_order_mark, "XML", {}});
  }
  pugi::xml_document document;
  try {
    const Element group = parse_group(document, xml, layout.root, "infCFe");
    LayoutCheck(layout, version_of(group), found).check_group(group, "");
    if (layout.has_items) add_wrong_amount(group, found);
  } catch (const Rejected& rejected) {
    const auto& rule = rejected.cause() == Cause::encoding  ? rule::kEncoding
                       : rejected.cause() == Cause::not_xml ? rule::kXml
                                                            : rule::kMissing;
    found.push_back({rule.name, rejected.cause(), rejected.field(), {}});
  }
  return found;
}

}  // namespace emulator
