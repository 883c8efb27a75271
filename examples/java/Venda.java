import com.sun.jna.Library;
import com.sun.jna.Native;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;

/** A till in Java: asks the device how it is and sells. Arguments: LIBRARY ACTIVATION_CODE SALE_FILE. */
public final class Venda {
  /** The functions that are used here; the others of talvex.h are declared in the same way. */
  public interface Talvex extends Library {
    // A char* result becomes a String, which is a copy.
    String ConsultarStatusOperacional(int numeroSessao, String codigoDeAtivacao);

    String EnviarDadosVenda(int numeroSessao, String codigoDeAtivacao, String dadosVenda);

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

  private Venda() {}

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

    int session = sat.SAT_APP_GenRndNum(1000000);
    String[] status = show("ConsultarStatusOperacional", sat.ConsultarStatusOperacional(session, activationCode), STATUS);
    if (status.length < 2 || !status[1].equals("10000")) System.exit(1);

    // The session number must differ from the last one.
    session = (session + 1) % 1000000;
    String[] sale = show("EnviarDadosVenda", sat.EnviarDadosVenda(session, activationCode, saleXml), RECEIPT);
    boolean sold = sale.length > 1 && Integer.parseInt(sale[0]) == session && sale[1].equals("06000");
    System.exit(sold ? 0 : 1);
  }
}
