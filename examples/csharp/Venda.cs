using System;
using System.IO;
using System.Runtime.InteropServices;
using System.Text;

/// <summary>A till in C#: asks the device how it is and sells. Arguments: ACTIVATION_CODE SALE_FILE.</summary>
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

    private static bool Answers(string[] fields, int session, string code)
    {
        int number;
        return fields.Length > 1 && int.TryParse(fields[0], out number) && number == session && fields[1] == code;
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

        int session = (int)SAT_APP_GenRndNum(1000000);
        string[] status = Show("ConsultarStatusOperacional", Text(ConsultarStatusOperacional(session, code)), StatusNames);
        if (!Answers(status, session, "10000")) return 1;

        // The session number must differ from the last one.
        session = (session + 1) % 1000000;
        string[] receipt = Show("EnviarDadosVenda", Text(EnviarDadosVenda(session, code, sale)), ReceiptNames);
        return Answers(receipt, session, "06000") ? 0 : 1;
    }
}
