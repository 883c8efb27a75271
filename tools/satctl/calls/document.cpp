#include "calls/document.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "terminal/printable.h"
#include "terminal/settings.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;

constexpr Text kNotShown{"(document, {} characters of base64; --save-xml FILE saves it)",
                         "(documento, {} caracteres de base64; --save-xml ARQUIVO o salva)"};
constexpr Text kSaved{"(document saved to {})", "(documento salvo em {})"};
constexpr Text kNotSaved{"the document could not be saved to {}: {}. {}",
                         "não foi possível salvar o documento em {}: {}. {}"};
constexpr Text kReceiptStands{
    "The receipt stands, do not send it again; its XML once more: satctl recuperar --sessao {} --save-xml FILE",
    "O cupom vale, não reenvie; para obter o XML de novo: satctl recuperar --sessao {} --save-xml ARQUIVO"};
constexpr Text kChangeStands{
    "The call was carried out; its reply once more: satctl consultar-numero-sessao --numero {} --save-xml FILE",
    "A chamada foi executada; para obter a resposta de novo: "
    "satctl consultar-numero-sessao --numero {} --save-xml ARQUIVO"};
constexpr Text kCallAgain{"The reply stands above; {} can be called again.",
                          "A resposta está acima; {} pode ser chamada de novo."};
constexpr Text kNoBase64{"the field is no base64", "o campo não é base64"};
constexpr Text kNoDocument{"the reply holds no document of this call; {} was not written",
                           "a resposta não traz documento desta chamada; {} não foi gravado"};

std::string how_to_get_it_again(const Reply& reply) {
  const Function* stored = find_function_by_code(reply.return_code());
  const Function& function = stored != nullptr ? *stored : *reply.request().function;
  switch (function.effect) {
    case Effect::fiscal:
      return fill(kReceiptStands, {std::to_string(reply.session())});
    case Effect::change:
      return fill(kChangeStands, {std::to_string(reply.session())});
    case Effect::none:
      return fill(kCallAgain, {function.name});
  }
  return {};
}

}  // namespace

fs::path save_target(const std::string& given) {
  if (given.empty()) return {};
  fs::path target = fs::absolute(given);
  std::error_code error;
  const fs::path parent = target.parent_path();
  const int reason = fs::is_directory(target, error) ? EISDIR : access(parent.c_str(), W_OK) == 0 ? 0 : errno;
  if (reason == 0) return target;
  throw UsageError(fill({"{} cannot be written: {}", "{} não pode ser gravado: {}"},
                        {target.string(), std::strerror(reason)}));
}

Saving save_document(const Library& library, const Reply& reply, const fs::path& target) {
  if (target.empty()) return {};
  const NamedField* document = reply.document();
  if (document == nullptr || reply.status() != ExitStatus::success) {
    print_error("satctl: " + fill(kNoDocument, {target.string()}));
    return {{}, true};
  }
  const auto content = library.decode_base64(document->value);
  if (content && replace_file(target, *content)) return {target.string()};
  const std::string reason = content ? std::strerror(errno) : tr(kNoBase64);
  print_error("satctl: " + fill(kNotSaved, {target.string(), reason, how_to_get_it_again(reply)}));
  return {{}, true};
}

ExitStatus status_after(const Saving& saving, ExitStatus status) {
  return saving.failed && status == ExitStatus::success ? ExitStatus::not_written : status;
}

void add_saving(nlohmann::ordered_json& object, const Saving& saving, ExitStatus status) {
  object["exitStatus"] = static_cast<int>(status);
  object["status"] = row_of(status).name;
  if (!saving.file.empty()) object["document"]["savedTo"] = valid_utf8(saving.file);
}

std::string document_note(const Reply& reply, const Saving& saving) {
  if (!saving.file.empty()) return fill(kSaved, {saving.file});
  const NamedField* document = reply.document();
  return fill(kNotShown, {std::to_string(document == nullptr ? 0 : document->value.size())});
}

}  // namespace satctl
