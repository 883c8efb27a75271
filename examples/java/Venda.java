import com.sun.jna.Library;
import com.sun.jna.Native;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;

/**
 * A till in Java: asks the device how it is, sells, and finds out what became of the sale if its reply does not say.
 * Arguments: LIBRARY ACTIVATION_CODE SALE_FILE. Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again
 * before you know.
 */
public final class Venda {
  /** The functions that are used here; the others of talvex.h are declared in the same way. */
  public interface Talvex extends Library {
    // A char* result becomes a String, which is a copy.
    String ConsultarStatusOperacional(int numeroSessao, String codigoDeAtivacao);

    String EnviarDadosVenda(int numeroSessao, String codigoDeAtivacao, String dadosVenda);

    String ConsultarNumeroSessao(int numeroSessao, String codigoDeAtivacao, int cNumeroDeSessao);

    String ConsultarUltimaSessaoFiscal(int numeroSessao, String codigoDeAtivacao);

    int SAT_APP_GenRndNum(int n);
  }

  private static final String[] STATUS = {
    "numeroSessao", "EEEEE", "mensagem", "cod", "mensagemSEFAZ", "NSERIE", "TIPO_LAN", "LAN_IP", "LAN_MAC", "LAN_MASK",
    "LAN_GW", "LAN_DNS_1", "LAN_DNS_2", "STATUS_LAN", "NIVEL_BATERIA", "MT_TOTAL", "MT_USADA", "DH_ATUAL", "VER_SB",
    "VER_LAYOUT", "ULTIMO_CF_E_SAT", "LISTA_INICIAL", "LISTA_FINAL", "DH_CFE", "DH_ULTIMA", "CERT_EMISSAO",
    "CERT_VENCIMENTO", "ESTADO_OPERACAO"
  };

  private static final String[] RECEIPT = {
    "numeroSessao", "EEEEE", "CCCC", "mensagem", "cod", "mensagemSEFAZ", "arquivoCFeBase64", "timeStamp",
    "chaveConsulta", "valorTotalCFe", "CPFCNPJValue", "assinaturaQRCODE"
  };

  private enum Outcome {
    ISSUED("issued", 0),
    REFUSED("refused", 1),
    NOT_SENT("not sent", 1),
    NOT_ISSUED("not issued", 1),
    UNKNOWN("unknown", 3);

    private final String text;
    private final int exitStatus;

    Outcome(String text, int exitStatus) {
      this.text = text;
      this.exitStatus = exitStatus;
    }
  }

  /** Session numbers stay below this: devices pad theirs to six digits, the library's own busy reply does not. */
  private static final int SESSIONS = 100000;

  private Venda() {}

  /** The session number must differ from the last one. */
  private static int nextSession(int session) {
    return (session + 1) % SESSIONS;
  }

  private static String field(String[] reply, int index) {
    return index < reply.length ? reply[index] : "";
  }

  private static boolean isOf(String[] reply, int session) {
    return reply[0].matches("[0-9]{1,6}") && Integer.parseInt(reply[0]) == session;
  }

  /**
   * What a reply settles of the sale with that session number. 06097 to 06099 are no refusals: where the line spoils an
   * acknowledgement, the library sends the command again, and they are the device's answers to a repetition of what it
   * has carried out. Only the library's own busy reply has no leading zeros: nothing was sent.
   */
  private static Outcome settlesSale(String[] reply, int session) {
    String code = field(reply, 1);
    if (!isOf(reply, session) || !code.matches("06[0-9]{3}")) return Outcome.UNKNOWN;
    if (code.equals("06000")) return Outcome.ISSUED;
    if (code.equals("06098") && reply[0].equals(Integer.toString(session))) return Outcome.NOT_SENT;
    return code.matches("0609[789]") ? Outcome.UNKNOWN : Outcome.REFUSED;
  }

  private static boolean isSold(String[] reply, int session, String keyBefore) {
    return settlesSale(reply, session) == Outcome.ISSUED && !field(reply, 8).equals(keyBefore);
  }

  /**
   * What became of the sale with that session number. keyBefore is the access key of the last receipt that was known
   * before the sale, empty if there was none.
   */
  private static Outcome findOut(Talvex sat, int session, String activationCode, String keyBefore) {
    int query = nextSession(session);
    String[] stored =
        show("ConsultarNumeroSessao", sat.ConsultarNumeroSessao(query, activationCode, session), RECEIPT);
    if (isSold(stored, session, keyBefore)) return Outcome.ISSUED;
    if (settlesSale(stored, session) == Outcome.REFUSED) return Outcome.REFUSED;
    // Only a device that was asked, and knows nothing of the sale, is asked for its last receipt.
    if (!isOf(stored, session) && !field(stored, 1).matches("11003|11099")) return Outcome.UNKNOWN;

    String[] last =
        show("ConsultarUltimaSessaoFiscal", sat.ConsultarUltimaSessaoFiscal(nextSession(query), activationCode), RECEIPT);
    if (isSold(last, session, keyBefore)) return Outcome.ISSUED;
    if (settlesSale(last, session) == Outcome.REFUSED) return Outcome.REFUSED;
    boolean unchanged = keyBefore.isEmpty() ? field(last, 1).equals("19003") : field(last, 8).equals(keyBefore);
    return unchanged ? Outcome.NOT_ISSUED : Outcome.UNKNOWN;
  }

  private static String[] show(String title, String text, String[] names) {
    String[] fields = text.startsWith("SAT Erro[") ? new String[] {text} : text.split("\\|", -1);
    System.out.println(title);
    for (int i = 0; i < fields.length; i++) {
      String field = fields[i];
      System.out.printf("  %-17s %.60s%s%n", i < names.length ? names[i] : "?", field, field.length() > 60 ? "..." : "");
    }
    return fields;
  }

  public static void main(String[] arguments) throws Exception {
    if (arguments.length != 3) {
      System.err.println("usage: Venda LIBRARY ACTIVATION_CODE SALE_FILE");
      System.exit(2);
    }
    String activationCode = arguments[1];
    String saleXml = new String(Files.readAllBytes(Path.of(arguments[2])), StandardCharsets.UTF_8);
    Talvex sat = Native.load(arguments[0], Talvex.class, Map.of(Library.OPTION_STRING_ENCODING, "UTF-8"));

    int session = sat.SAT_APP_GenRndNum(SESSIONS);
    String[] status = show("ConsultarStatusOperacional", sat.ConsultarStatusOperacional(session, activationCode), STATUS);
    if (!isOf(status, session) || !field(status, 1).equals("10000")) System.exit(1);

    // A till writes both down before it sells, where a power failure does not reach them.
    session = nextSession(session);
    String keyBefore = field(status, 20); // ULTIMO_CF_E_SAT
    String[] sale = show("EnviarDadosVenda", sat.EnviarDadosVenda(session, activationCode, saleXml), RECEIPT);
    Outcome outcome = settlesSale(sale, session);
    if (outcome == Outcome.UNKNOWN) outcome = findOut(sat, session, activationCode, keyBefore);
    System.out.println("=> " + outcome.text);
    System.exit(outcome.exitStatus);
  }
}
