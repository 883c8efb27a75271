/* A minimal till: loads libtalvex.so at run time, asks the device how it is, sells and cancels the sale.
 *
 *   consulta LIBRARY ACTIVATION_CODE SALE_FILE
 *
 * Run it in a folder with a SAT.ini; the library writes its logs there. Every reply is shown field by field.
 * What became of a sale or cancellation whose reply does not say, it finds out. The exit status is 0 if both
 * were done, 3 if the outcome of one is unknown: do not send it again before you know. Otherwise it is 1. */
#define _POSIX_C_SOURCE 200809L

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Session numbers stay below 100000: devices pad theirs to six digits, the library's own busy reply does not.
 */
enum { MAX_FIELDS = 64, SESSIONS = 100000 };

enum outcome { ISSUED, REFUSED, NOT_SENT, NOT_ISSUED, UNKNOWN };

static const char* const kOutcomes[] = {"issued", "refused", "not sent", "not issued", "unknown"};

typedef char* (*version_function)(void);
typedef char* (*query_function)(int session);
typedef char* (*status_function)(int session, const char* code);
typedef char* (*session_function)(int session, const char* code, int asked);
typedef char* (*sale_function)(int session, const char* code, const char* sale);
typedef char* (*cancel_function)(int session, const char* code, const char* key, const char* data);

static const char* const kQueryFields[] = {"numeroSessao", "EEEEE", "mensagem", "cod", "mensagemSEFAZ", NULL};

static const char* const kStatusFields[] = {
    "numeroSessao",    "EEEEE",           "mensagem",        "cod",        "mensagemSEFAZ",
    "NSERIE",          "TIPO_LAN",        "LAN_IP",          "LAN_MAC",    "LAN_MASK",
    "LAN_GW",          "LAN_DNS_1",       "LAN_DNS_2",       "STATUS_LAN", "NIVEL_BATERIA",
    "MT_TOTAL",        "MT_USADA",        "DH_ATUAL",        "VER_SB",     "VER_LAYOUT",
    "ULTIMO_CF_E_SAT", "LISTA_INICIAL",   "LISTA_FINAL",     "DH_CFE",     "DH_ULTIMA",
    "CERT_EMISSAO",    "CERT_VENCIMENTO", "ESTADO_OPERACAO", NULL};

static const char* const kSaleFields[] = {"numeroSessao",
                                          "EEEEE",
                                          "CCCC",
                                          "mensagem",
                                          "cod",
                                          "mensagemSEFAZ",
                                          "arquivoCFeBase64",
                                          "timeStamp",
                                          "chaveConsulta",
                                          "valorTotalCFe",
                                          "CPFCNPJValue",
                                          "assinaturaQRCODE",
                                          NULL};

/* The reply as the library returned it, cut into its fields. */
struct reply {
  char* text;
  char* fields[MAX_FIELDS];
  int count;
};

static struct reply split(const char* text) {
  struct reply reply = {strdup(text), {NULL}, 0};
  if (reply.text == NULL) exit(1);
  for (char* field = reply.text; field != NULL && reply.count < MAX_FIELDS; ++reply.count) {
    char* separator = strchr(field, '|');
    if (separator != NULL) *separator = '\0';
    reply.fields[reply.count] = field;
    field = separator == NULL ? NULL : separator + 1;
  }
  return reply;
}

static int count_of(const char* const* names) {
  int count = 0;
  while (names[count] != NULL) ++count;
  return count;
}

static void show(const struct reply* reply, const char* const* names, int name_count) {
  for (int i = 0; i < reply->count; ++i) {
    const char* field = reply->fields[i];
    printf("  %-17s %.70s%s\n", i < name_count ? names[i] : "?", field, strlen(field) > 70 ? "..." : "");
  }
}

static const char* field(const struct reply* reply, int index) {
  return index < reply->count ? reply->fields[index] : "";
}

static int is(const struct reply* reply, int index, const char* text) {
  return strcmp(field(reply, index), text) == 0;
}

static int is_of(const struct reply* reply, int session) {
  const char* digits = field(reply, 0);
  return *digits != '\0' && digits[strspn(digits, "0123456789")] == '\0' && atoi(digits) == session;
}

/* Shows the reply of a query; 1 if it is the right one. */
static int check(const char* function, const struct reply* reply, const char* const* names, int session,
                 const char* code) {
  const int expected = count_of(names);
  printf("%s\n", function);
  show(reply, names, expected);
  const int right = reply->count == expected && is_of(reply, session) && is(reply, 1, code);
  printf("  => %s\n\n", right ? "right" : "WRONG");
  return right;
}

/* What a reply settles of the sale (prefix "06") or cancellation ("07") with that session number. xx097 to
 * xx099 are no refusals: where the line spoils an acknowledgement, the library sends the command again, and
 * they are the device's answers to a repetition of what it has carried out. Only the library's own busy reply
 * has no leading zeros: nothing was sent. */
static enum outcome settles(const struct reply* reply, const char* prefix, int session) {
  const char* code = field(reply, 1);
  if (!is_of(reply, session) || strlen(code) != 5 || strncmp(code, prefix, 2) != 0) return UNKNOWN;
  const char* ending = code + 2;
  if (strcmp(ending, "000") == 0) return ISSUED;
  char bare[16];
  snprintf(bare, sizeof bare, "%d", session);
  if (strcmp(ending, "098") == 0 && is(reply, 0, bare)) return NOT_SENT;
  if (strcmp(ending, "097") == 0 || strcmp(ending, "098") == 0 || strcmp(ending, "099") == 0) return UNKNOWN;
  return REFUSED;
}

static int is_issued(const struct reply* reply, const char* prefix, int session, const char* key_before) {
  return settles(reply, prefix, session) == ISSUED && !is(reply, 8, key_before);
}

static struct reply split_and_show(const char* function, const char* text) {
  const struct reply reply = split(text);
  printf("%s\n", function);
  show(&reply, kSaleFields, count_of(kSaleFields));
  return reply;
}

/* The functions that find out. */
static session_function ConsultarNumeroSessao;
static status_function ConsultarUltimaSessaoFiscal;

/* What became of the sale or cancellation with that session number; *answer becomes the reply that says so.
 * key_before: access key of the last receipt that was known before the call, "" if there was none. */
static enum outcome find_out(const char* prefix, int session, const char* code, const char* key_before,
                             struct reply* answer) {
  const int query = (session + 1) % SESSIONS;
  free(answer->text);
  *answer = split_and_show("ConsultarNumeroSessao", ConsultarNumeroSessao(query, code, session));
  if (is_issued(answer, prefix, session, key_before)) return ISSUED;
  if (settles(answer, prefix, session) == REFUSED) return REFUSED;
  /* Only a device that was asked, and knows nothing of the call, is asked for its last receipt. */
  if (!is_of(answer, session) && !is(answer, 1, "11003") && !is(answer, 1, "11099")) return UNKNOWN;

  free(answer->text);
  *answer = split_and_show("ConsultarUltimaSessaoFiscal",
                           ConsultarUltimaSessaoFiscal((query + 1) % SESSIONS, code));
  if (is_issued(answer, prefix, session, key_before)) return ISSUED;
  if (settles(answer, prefix, session) == REFUSED) return REFUSED;
  const int unchanged = *key_before == '\0' ? is(answer, 1, "19003") : is(answer, 8, key_before);
  return unchanged ? NOT_ISSUED : UNKNOWN;
}

/* Shows the reply of a sale or cancellation, and finds out what became of it where the reply does not say. */
static enum outcome settle(const char* function, const char* prefix, int session, const char* code,
                           const char* key_before, struct reply* reply) {
  printf("%s\n", function);
  show(reply, kSaleFields, count_of(kSaleFields));
  enum outcome outcome = settles(reply, prefix, session);
  if (outcome == UNKNOWN) outcome = find_out(prefix, session, code, key_before, reply);
  printf("=> %s\n\n", kOutcomes[outcome]);
  return outcome;
}

static int exit_status(enum outcome outcome) {
  return outcome == ISSUED ? 0 : outcome == UNKNOWN ? 3 : 1;
}

static char* read_file(const char* path) {
  FILE* file = fopen(path, "rb");
  if (file == NULL) return NULL;
  char* text = NULL;
  if (fseek(file, 0, SEEK_END) == 0) {
    const long size = ftell(file);
    rewind(file);
    text = size < 0 ? NULL : calloc(1, (size_t)size + 1);
    if (text != NULL && fread(text, 1, (size_t)size, file) != (size_t)size) text[0] = '\0';
  }
  fclose(file);
  return text;
}

/* POSIX promises that dlsym's result can be taken as a function. */
static void* symbol(void* library, const char* name) {
  void* address = dlsym(library, name);
  if (address == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    exit(1);
  }
  return address;
}

#define LOAD(type, name) \
  type name;             \
  *(void**)&name = symbol(library, #name)

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: consulta LIBRARY ACTIVATION_CODE SALE_FILE\n");
    return 2;
  }
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  const char* code = argv[2];
  char* sale = read_file(argv[3]);
  if (sale == NULL || sale[0] == '\0') {
    fprintf(stderr, "%s: cannot be read\n", argv[3]);
    return 1;
  }
  LOAD(version_function, VersaoDllTalvex);
  LOAD(query_function, ConsultarSAT);
  LOAD(status_function, ConsultarStatusOperacional);
  LOAD(sale_function, EnviarDadosVenda);
  LOAD(cancel_function, CancelarUltimaVenda);
  *(void**)&ConsultarNumeroSessao = symbol(library, "ConsultarNumeroSessao");
  *(void**)&ConsultarUltimaSessaoFiscal = symbol(library, "ConsultarUltimaSessaoFiscal");

  char key_before[64] = "", key[64] = "";
  printf("VersaoDllTalvex\n  %s\n\n", VersaoDllTalvex());

  /* The library owns the text it returns and reuses it at the next call: each reply is copied first. */
  struct reply reply = split(ConsultarSAT(10001));
  int right = check("ConsultarSAT", &reply, kQueryFields, 10001, "08000");
  free(reply.text);

  /* A till writes down the session number of a sale, and the last receipt before it (ULTIMO_CF_E_SAT). */
  reply = split(ConsultarStatusOperacional(10002, code));
  right &= check("ConsultarStatusOperacional", &reply, kStatusFields, 10002, "10000");
  snprintf(key_before, sizeof key_before, "%s", field(&reply, 20));
  free(reply.text);
  if (!right) return 1;

  printf("(a sale of %zu bytes)\n", strlen(sale));
  reply = split(EnviarDadosVenda(10003, code, sale));
  enum outcome outcome = settle("EnviarDadosVenda", "06", 10003, code, key_before, &reply);
  snprintf(key, sizeof key, "%s", field(&reply, 8));
  free(reply.text);
  if (outcome != ISSUED) return exit_status(outcome);

  char cancellation[512];
  snprintf(cancellation, sizeof cancellation,
           "<CFeCanc><infCFe chCanc=\"%s\"><ide><CNPJ>12345678000195</CNPJ><signAC>%s</signAC>"
           "<numeroCaixa>001</numeroCaixa></ide><emit/><dest/><total/></infCFe></CFeCanc>",
           key, "ASSINATURA DE TESTE");
  reply = split(CancelarUltimaVenda(10006, code, key, cancellation));
  outcome = settle("CancelarUltimaVenda", "07", 10006, code, key, &reply);
  free(reply.text);

  free(sale);
  dlclose(library);
  return exit_status(outcome);
}
