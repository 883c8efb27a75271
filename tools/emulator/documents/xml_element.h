// Elements of the till's XML that know where they stand, so that a refusal can name the field.
#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "documents/rejection.h"

namespace emulator {

class Element {
 public:
  Element(pugi::xml_node node, std::string path) : node_(node), path_(std::move(path)) {}

  pugi::xml_node node() const { return node_; }
  const std::string& path() const { return path_; }
  std::string text() const { return node_.text().get(); }
  // The path of what is called so in here.
  std::string inside(const std::string& name) const { return path_.empty() ? name : path_ + "/" + name; }

  // Throws Rejected when there is none.
  Element child(const char* name) const;
  std::optional<Element> find(const char* name) const;
  // At least one and at most `most` of this name, in order.
  std::vector<Element> children(const char* name, std::size_t most) const;
  std::optional<Element> first_child() const;

  [[noreturn]] void reject(Cause cause) const { throw Rejected(cause, path_); }

 private:
  pugi::xml_node node_;
  std::string path_;
};

// Parses the text and returns the group below the root, for example CFe/infCFe. The path of its fields
// starts below the group.
Element parse_group(pugi::xml_document& document, std::string_view text, const char* root, const char* group);

std::string xml_text(const pugi::xml_document& document);

}  // namespace emulator
