// The document of a reply (receipt, certificate request, log), saved where --save-xml says.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "calls/reply.h"
#include "library/library.h"

namespace satctl {

inline constexpr Text kSaveHelp{
    "save the document in the reply (XML, certificate request, log), decoded",
    "salvar o documento da resposta (XML, pedido de certificado, log), decodificado"};

// The file as an absolute path, or nothing where none is given. Throws UsageError for a file that cannot be
// written: before the device is touched.
std::filesystem::path save_target(const std::string& given);

struct Saving {
  std::string file;     // where the document went, if it went anywhere
  bool failed = false;  // it was wanted, and is not there
};

// Saves the document of a successful reply, if a target is given; says on standard error what is missing.
Saving save_document(const Library& library, const Reply& reply, const std::filesystem::path& target);

// A success whose document is missing is none.
ExitStatus status_after(const Saving& saving, ExitStatus status);

// Adds where the document went, and the exit status that comes of it.
void add_saving(nlohmann::ordered_json& object, const Saving& saving, ExitStatus status);

// What stands in the place of the document on the screen.
std::string document_note(const Reply& reply, const Saving& saving);

}  // namespace satctl
