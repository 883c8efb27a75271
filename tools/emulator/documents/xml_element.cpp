#include "documents/xml_element.h"

#include <sstream>

#include "documents/encoding.h"

namespace emulator {

Element Element::child(const char* name) const {
  auto found = find(name);
  if (!found) throw Rejected(Cause::missing_field, inside(name));
  return *found;
}

std::optional<Element> Element::find(const char* name) const {
  const auto node = node_.child(name);
  if (!node) return std::nullopt;
  return Element(node, inside(name));
}

std::vector<Element> Element::children(const char* name, std::size_t most) const {
  std::vector<Element> found;
  for (const auto node : node_.children(name)) {
    found.emplace_back(node, inside(name) + "[" + std::to_string(found.size() + 1) + "]");
    if (found.size() > most) throw Rejected(Cause::too_many, inside(name));
  }
  if (found.empty()) throw Rejected(Cause::missing_field, inside(name));
  return found;
}

std::optional<Element> Element::first_child() const {
  for (const auto node : node_.children()) {
    if (node.type() == pugi::node_element) return Element(node, inside(node.name()));
  }
  return std::nullopt;
}

namespace {

// The fiscal documents have no default namespace, whatever the till declares.
struct NamespaceRemover : pugi::xml_tree_walker {
  bool for_each(pugi::xml_node& node) override {
    node.remove_attribute("xmlns");
    return true;
  }
};

// How the text is to be read; Rejected if its bytes do not fit what it declares.
pugi::xml_encoding encoding_of(std::string_view text) {
  const std::string declared = declared_encoding(text);
  if (is_latin1(declared)) return pugi::encoding_latin1;
  if (declared != kUtf8 && declared != kAscii) throw Rejected(Cause::encoding, declared);
  const auto misfit = declared == kAscii ? first_byte_not_ascii(text) : first_byte_not_utf8(text);
  if (misfit) throw Rejected(Cause::encoding, declared + ", byte " + std::to_string(*misfit));
  return pugi::encoding_utf8;
}

}  // namespace

Element parse_group(pugi::xml_document& document, std::string_view text, const char* root,
                    const char* group) {
  const auto result = document.load_buffer(text.data(), text.size(), pugi::parse_default, encoding_of(text));
  if (!result) throw Rejected(Cause::not_xml, "posição " + std::to_string(result.offset));
  NamespaceRemover remover;
  document.traverse(remover);
  return {Element(document, "").child(root).child(group).node(), ""};
}

std::string xml_text(const pugi::xml_document& document) {
  std::ostringstream text;
  document.save(text, "", pugi::format_raw | pugi::format_no_declaration);
  return text.str();
}

}  // namespace emulator
