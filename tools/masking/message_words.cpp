#include "masking/message_words.h"

#include <algorithm>
#include <array>

#include "masking/field_rules.h"

namespace masking {

namespace {

// In ascending order of bytes; of the ASCII letters the small ones. Kept: the misspelt ones; devices send
// them.
constexpr auto kWords = std::to_array<std::string_view>({"a",
                                                         "ac",
                                                         "acesso",
                                                         "acionar",
                                                         "acrescimo",
                                                         "acréscimo",
                                                         "ainda",
                                                         "alterado",
                                                         "andamento",
                                                         "anteriores",
                                                         "ao",
                                                         "aplicativo",
                                                         "argumentos",
                                                         "arquivo",
                                                         "as",
                                                         "assinatura",
                                                         "atendida",
                                                         "ativacao",
                                                         "ativado",
                                                         "ativação",
                                                         "atualizacao",
                                                         "atualizacoes",
                                                         "atualizado",
                                                         "atualização",
                                                         "atualizações",
                                                         "ausente",
                                                         "autonomo",
                                                         "autorizado",
                                                         "autônomo",
                                                         "bloqueado",
                                                         "bloqueio",
                                                         "branco",
                                                         "brasil",
                                                         "caixa",
                                                         "calculo",
                                                         "campo",
                                                         "cancelado",
                                                         "ccdigo",
                                                         "certificado",
                                                         "certificados",
                                                         "cessado",
                                                         "cf",
                                                         "cfe",
                                                         "cfop",
                                                         "chave",
                                                         "cnpj",
                                                         "cobrem",
                                                         "cod",
                                                         "codigo",
                                                         "com",
                                                         "comando",
                                                         "comercial",
                                                         "completa",
                                                         "comunicacao",
                                                         "comunicação",
                                                         "confere",
                                                         "configuracies",
                                                         "configuracoes",
                                                         "configurada",
                                                         "configurações",
                                                         "confirmacao",
                                                         "constante",
                                                         "conteudo",
                                                         "conteúdo",
                                                         "contribuinte",
                                                         "corresponde",
                                                         "corretamente",
                                                         "cpf",
                                                         "criacao",
                                                         "criado",
                                                         "criação",
                                                         "csr",
                                                         "cupom",
                                                         "cálculo",
                                                         "código",
                                                         "da",
                                                         "dados",
                                                         "daquele",
                                                         "das",
                                                         "de",
                                                         "declaracao",
                                                         "declaração",
                                                         "desativacao",
                                                         "desativação",
                                                         "desbloqueado",
                                                         "desconhecida",
                                                         "desconhecido",
                                                         "desconto",
                                                         "despesas",
                                                         "destinatario",
                                                         "destinatário",
                                                         "dia",
                                                         "dias",
                                                         "difere",
                                                         "diferenca",
                                                         "diferença",
                                                         "digital",
                                                         "disponivel",
                                                         "disponível",
                                                         "do",
                                                         "dos",
                                                         "e",
                                                         "eh",
                                                         "em",
                                                         "emergencia",
                                                         "emergência",
                                                         "emissao",
                                                         "emissão",
                                                         "emitente",
                                                         "emitido",
                                                         "emu",
                                                         "enviado",
                                                         "equipamento",
                                                         "erro",
                                                         "escolhido",
                                                         "especificado",
                                                         "especifico",
                                                         "esperado",
                                                         "esse",
                                                         "esta",
                                                         "este",
                                                         "está",
                                                         "etorno",
                                                         "excedidas",
                                                         "existe",
                                                         "existem",
                                                         "falha",
                                                         "falta",
                                                         "faltam",
                                                         "fiscal",
                                                         "fora",
                                                         "grupo",
                                                         "horas",
                                                         "house",
                                                         "icp",
                                                         "identificado",
                                                         "incorreto",
                                                         "informa",
                                                         "informada",
                                                         "informado",
                                                         "invalida",
                                                         "invalido",
                                                         "inválida",
                                                         "inválido",
                                                         "item",
                                                         "ja",
                                                         "já",
                                                         "limite",
                                                         "liquido",
                                                         "logs",
                                                         "líquido",
                                                         "manutencao",
                                                         "manutenção",
                                                         "meio",
                                                         "mensagem",
                                                         "minutos",
                                                         "na",
                                                         "nao",
                                                         "neste",
                                                         "no",
                                                         "nos",
                                                         "notas",
                                                         "novamente",
                                                         "numero",
                                                         "não",
                                                         "número",
                                                         "o",
                                                         "obrigatorio",
                                                         "obrigatório",
                                                         "ocorrencias",
                                                         "ocorrências",
                                                         "ok",
                                                         "opcao",
                                                         "operacao",
                                                         "operacionais",
                                                         "operação",
                                                         "ou",
                                                         "outras",
                                                         "padrao",
                                                         "padrão",
                                                         "pagamento",
                                                         "pagamentos",
                                                         "para",
                                                         "parametrizacao",
                                                         "parametrização",
                                                         "pela",
                                                         "pelo",
                                                         "pendente",
                                                         "pendentes",
                                                         "por",
                                                         "posse",
                                                         "precisa",
                                                         "processada",
                                                         "processamento",
                                                         "processo",
                                                         "quantidade",
                                                         "que",
                                                         "recebimento",
                                                         "reconhece",
                                                         "reconhecida",
                                                         "rede",
                                                         "registrada",
                                                         "regra",
                                                         "rejeicao",
                                                         "rejeição",
                                                         "resposta",
                                                         "retorno",
                                                         "saida",
                                                         "sat",
                                                         "saída",
                                                         "schema",
                                                         "sefaz",
                                                         "sem",
                                                         "sequencia",
                                                         "sequência",
                                                         "ser",
                                                         "service",
                                                         "sessao",
                                                         "sessão",
                                                         "sobre",
                                                         "sofrera",
                                                         "sofrerá",
                                                         "software",
                                                         "solicitacoes",
                                                         "solicitações",
                                                         "status",
                                                         "subcomando",
                                                         "subtotal",
                                                         "sucesso",
                                                         "superior",
                                                         "suportada",
                                                         "suporte",
                                                         "tamanho",
                                                         "tecnico",
                                                         "tente",
                                                         "texto",
                                                         "total",
                                                         "transferencia",
                                                         "transferência",
                                                         "transmissao",
                                                         "transmissão",
                                                         "transmitido",
                                                         "tributos",
                                                         "técnico",
                                                         "uf",
                                                         "unitario",
                                                         "unitário",
                                                         "uso",
                                                         "validacao",
                                                         "validação",
                                                         "valor",
                                                         "vencimento",
                                                         "verificacao",
                                                         "verificação",
                                                         "verifique",
                                                         "versao",
                                                         "versão",
                                                         "vinculacao",
                                                         "vinculacaoo",
                                                         "vinculado",
                                                         "vinculação",
                                                         "web",
                                                         "xml",
                                                         "às",
                                                         "é"});
static_assert(std::is_sorted(kWords.begin(), kWords.end()));

constexpr std::string_view kMarks = " .,:;!?()*+/-";

bool is_listed(std::string_view word) {
  std::string small(word);
  for (char& c : small) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return std::binary_search(kWords.begin(), kWords.end(), std::string_view(small));
}

// Some devices spell in code page 1252; the letters of Portuguese have the numbers of Unicode there.
std::string from_code_page(std::string_view word) {
  constexpr unsigned kFirstOfTwoBytes = 0x80, kLead = 0xC0, kFollow = 0x80, kLow = 0x3F;
  std::string text;
  for (const char c : word) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < kFirstOfTwoBytes) {
      text += c;
    } else {
      text += static_cast<char>(kLead | byte >> 6U);
      text += static_cast<char>(kFollow | (byte & kLow));
    }
  }
  return text;
}

bool is_known(std::string_view word) {
  constexpr std::size_t kLongestWord = 40;
  return word.size() <= kLongestWord && (is_listed(word) || is_listed(from_code_page(word)));
}

// Longer runs of marks are no punctuation.
std::string punctuation(std::string_view marks) {
  constexpr std::size_t kMost = 4;
  std::string text(marks.substr(0, kMost));
  if (marks.size() > kMost) text += length_only(marks.substr(kMost));
  return text;
}

}  // namespace

std::string known_words_of(std::string_view message) {
  std::string text;
  std::size_t hidden_from = 0, hidden_to = 0;  // the run of other words that is going on
  const auto end_hidden = [&] {
    text += length_only(message.substr(hidden_from, hidden_to - hidden_from));
    hidden_from = hidden_to = 0;
  };
  std::size_t at = 0, shown_to = 0;
  while (at < message.size()) {
    const std::size_t start = std::min(message.find_first_not_of(kMarks, at), message.size());
    const std::size_t end = std::min(message.find_first_of(kMarks, start), message.size());
    at = end;
    if (start == end) break;
    if (!is_known(message.substr(start, end - start))) {
      if (hidden_to == 0) {
        text += punctuation(message.substr(shown_to, start - shown_to));
        hidden_from = start;
      }
      hidden_to = shown_to = end;
      continue;
    }
    if (hidden_to != 0) end_hidden();
    text += punctuation(message.substr(shown_to, start - shown_to));
    text += message.substr(start, end - start);
    shown_to = end;
  }
  if (hidden_to != 0) end_hidden();
  return text + punctuation(message.substr(shown_to));
}

}  // namespace masking
