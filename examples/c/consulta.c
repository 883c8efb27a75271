/* A minimal till: loads libtalvex.so at run time, asks the device how it is, sells and cancels the sale.
 *
 *   consulta LIBRARY ACTIVATION_CODE SALE_FILE
 *
 * Run it in a folder with a SAT.ini; the library writes its logs there. Every reply is shown field by field.
 * The exit status is 0 only if every reply was the right one: the session number sent, the success code of
 * the function and the number of fields that the CF-e-SAT standard gives it. */
#define _POSIX_C_SOURCE 200809L

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { MAX_FIELDS = 64 };

typedef char* (*version_function)(void);
typedef char* (*query_function)(int session);
typedef char* (*status_function)(int session, const char* code);
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

/* Shows the reply; 1 if it is the right one. */
static int check(const char* function, const struct reply* reply, const char* const* names, int session,
                 const char* code) {
  const int expected = count_of(names);
  printf("%s\n", function);
  show(reply, names, expected);
  const int right =
      reply->count == expected && atoi(reply->fields[0]) == session && strcmp(reply->fields[1], code) == 0;
  printf("  => %s\n\n", right ? "right" : "WRONG");
  return right;
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

  int right = 1;
  printf("VersaoDllTalvex\n  %s\n\n", VersaoDllTalvex());

  /* The library owns the text it returns and reuses it at the next call: each reply is copied first. */
  struct reply reply = split(ConsultarSAT(100001));
  right &= check("ConsultarSAT", &reply, kQueryFields, 100001, "08000");
  free(reply.text);

  reply = split(ConsultarStatusOperacional(100002, code));
  right &= check("ConsultarStatusOperacional", &reply, kStatusFields, 100002, "10000");
  free(reply.text);

  printf("(a sale of %zu bytes)\n", strlen(sale));
  reply = split(EnviarDadosVenda(100003, code, sale));
  right &= check("EnviarDadosVenda", &reply, kSaleFields, 100003, "06000");

  char key[64] = "";
  if (reply.count > 8) snprintf(key, sizeof key, "%s", reply.fields[8]);
  free(reply.text);

  char cancellation[512];
  snprintf(cancellation, sizeof cancellation,
           "<CFeCanc><infCFe chCanc=\"%s\"><ide><CNPJ>12345678000195</CNPJ><signAC>%s</signAC>"
           "<numeroCaixa>001</numeroCaixa></ide><emit/><dest/><total/></infCFe></CFeCanc>",
           key, "ASSINATURA DE TESTE");
  reply = split(CancelarUltimaVenda(100004, code, key, cancellation));
  right &= check("CancelarUltimaVenda", &reply, kSaleFields, 100004, "07000");
  free(reply.text);

  free(sale);
  dlclose(library);
  printf("%s\n", right ? "All replies are right." : "A reply is wrong.");
  return right ? 0 : 1;
}
