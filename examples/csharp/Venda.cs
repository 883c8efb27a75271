using System;
using System.Globalization;
using System.IO;
using System.Runtime.InteropServices;
using System.Text;
using System.Text.RegularExpressions;

/// <summary>A till in C#: asks the device how it is, sells, and finds out what became of the sale if its reply does not
/// say. Arguments: ACTIVATION_CODE SALE_FILE. Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again
/// before you know.</summary>
internal static class Venda
{
    private const string Library = "libtalvex.so.2";

    // Results are pointers into the library's buffer, never to be freed: an IntPtr, copied by Text below. A string
    // as the result type would make the runtime free it.
    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    private static extern IntPtr ConsultarStatusOperacional(int numeroSessao, byte[] codigoDeAtivacao);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    private static extern IntPtr EnviarDadosVenda(int numeroSessao, byte[] codigoDeAtivacao, byte[] dadosVenda);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    private static extern IntPtr ConsultarNumeroSessao(int numeroSessao, byte[] codigoDeAtivacao, int cNumeroDeSessao);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    private static extern IntPtr ConsultarUltimaSessaoFiscal(int numeroSessao, byte[] codigoDeAtivacao);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    private static extern uint SAT_APP_GenRndNum(uint n);

    private static readonly string[] StatusNames =
    {
        "numeroSessao", "EEEEE", "mensagem", "cod", "mensagemSEFAZ", "NSERIE", "TIPO_LAN", "LAN_IP", "LAN_MAC",
        "LAN_MASK", "LAN_GW", "LAN_DNS_1", "LAN_DNS_2", "STATUS_LAN", "NIVEL_BATERIA", "MT_TOTAL", "MT_USADA",
        "DH_ATUAL", "VER_SB", "VER_LAYOUT", "ULTIMO_CF_E_SAT", "LISTA_INICIAL", "LISTA_FINAL", "DH_CFE", "DH_ULTIMA",
        "CERT_EMISSAO", "CERT_VENCIMENTO", "ESTADO_OPERACAO"
    };

    private static readonly string[] ReceiptNames =
    {
        "numeroSessao", "EEEEE", "CCCC", "mensagem", "cod", "mensagemSEFAZ", "arquivoCFeBase64", "timeStamp",
        "chaveConsulta", "valorTotalCFe", "CPFCNPJValue", "assinaturaQRCODE"
    };

    private static byte[] Bytes(string text)
    {
        return Encoding.UTF8.GetBytes(text + "\0");
    }

    private static string Text(IntPtr reply)
    {
        int length = 0;
        while (Marshal.ReadByte(reply, length) != 0) length++;
        var copy = new byte[length];
        Marshal.Copy(reply, copy, 0, length);
        return Encoding.UTF8.GetString(copy);
    }

    private static string[] Show(string title, string text, string[] names)
    {
        string[] fields = text.StartsWith("SAT Erro[", StringComparison.Ordinal) ? new[] { text } : text.Split('|');
        Console.WriteLine(title);
        for (int i = 0; i < fields.Length; i++)
        {
            string name = i < names.Length ? names[i] : "?";
            string field = fields[i].Length > 60 ? fields[i].Substring(0, 60) + "..." : fields[i];
            Console.WriteLine("  {0,-17} {1}", name, field);
        }
        return fields;
    }

    private const string Issued = "issued", Refused = "refused", NotSent = "not sent", NotIssued = "not issued";
    private const string Unknown = "unknown";

    // Session numbers stay below this: devices pad theirs to six digits, the library's own busy reply does not.
    private const int Sessions = 100000;

    // The session number must differ from the last one.
    private static int NextSession(int session)
    {
        return (session + 1) % Sessions;
    }

    private static string Field(string[] reply, int index)
    {
        return index < reply.Length ? reply[index] : "";
    }

    private static bool IsOf(string[] reply, int session)
    {
        int number;
        return int.TryParse(reply[0], NumberStyles.None, CultureInfo.InvariantCulture, out number) && number == session;
    }

    // What a reply settles of the sale with that session number. 06097 to 06099 are no refusals: where the line spoils
    // an acknowledgement, the library sends the command again, and they are the device's answers to a repetition of
    // what it has carried out. Only the library's own busy reply has no leading zeros: nothing was sent.
    private static string SettlesSale(string[] reply, int session)
    {
        string code = Field(reply, 1);
        if (!IsOf(reply, session) || !Regex.IsMatch(code, "^06[0-9]{3}$")) return Unknown;
        if (code == "06000") return Issued;
        if (code == "06098" && reply[0] == session.ToString(CultureInfo.InvariantCulture)) return NotSent;
        return code == "06097" || code == "06098" || code == "06099" ? Unknown : Refused;
    }

    private static bool IsSold(string[] reply, int session, string keyBefore)
    {
        return SettlesSale(reply, session) == Issued && Field(reply, 8) != keyBefore;
    }

    // What became of the sale with that session number. keyBefore is the access key of the last receipt that was known
    // before the sale, empty if there was none.
    private static string FindOut(int session, byte[] code, string keyBefore)
    {
        int query = NextSession(session);
        string[] stored = Show("ConsultarNumeroSessao", Text(ConsultarNumeroSessao(query, code, session)), ReceiptNames);
        if (IsSold(stored, session, keyBefore)) return Issued;
        if (SettlesSale(stored, session) == Refused) return Refused;
        // Only a device that was asked, and knows nothing of the sale, is asked for its last receipt.
        string answer = Field(stored, 1);
        if (!IsOf(stored, session) && answer != "11003" && answer != "11099") return Unknown;

        string[] last = Show("ConsultarUltimaSessaoFiscal",
                             Text(ConsultarUltimaSessaoFiscal(NextSession(query), code)), ReceiptNames);
        if (IsSold(last, session, keyBefore)) return Issued;
        if (SettlesSale(last, session) == Refused) return Refused;
        bool unchanged = keyBefore == "" ? Field(last, 1) == "19003" : Field(last, 8) == keyBefore;
        return unchanged ? NotIssued : Unknown;
    }

    private static int Main(string[] arguments)
    {
        if (arguments.Length != 2)
        {
            Console.Error.WriteLine("usage: Venda ACTIVATION_CODE SALE_FILE");
            return 2;
        }
        byte[] code = Bytes(arguments[0]);
        byte[] sale = Bytes(File.ReadAllText(arguments[1], Encoding.UTF8));

        int session = (int)SAT_APP_GenRndNum(Sessions);
        string[] status = Show("ConsultarStatusOperacional", Text(ConsultarStatusOperacional(session, code)), StatusNames);
        if (!IsOf(status, session) || Field(status, 1) != "10000") return 1;

        // A till writes both down before it sells, where a power failure does not reach them.
        session = NextSession(session);
        string keyBefore = Field(status, 20); // ULTIMO_CF_E_SAT
        string[] receipt = Show("EnviarDadosVenda", Text(EnviarDadosVenda(session, code, sale)), ReceiptNames);
        string outcome = SettlesSale(receipt, session);
        if (outcome == Unknown) outcome = FindOut(session, code, keyBefore);
        Console.WriteLine("=> " + outcome);
        return outcome == Issued ? 0 : outcome == Unknown ? 3 : 1;
    }
}
