<?php
// A till in PHP: asks the device how it is, sells, and finds out what became of the sale if its reply does not say.
//
//   php venda.php LIBRARY ACTIVATION_CODE SALE_FILE
//
// Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again before you know.
declare(strict_types=1);

const STATUS = ['numeroSessao', 'EEEEE', 'mensagem', 'cod', 'mensagemSEFAZ', 'NSERIE', 'TIPO_LAN', 'LAN_IP', 'LAN_MAC',
    'LAN_MASK', 'LAN_GW', 'LAN_DNS_1', 'LAN_DNS_2', 'STATUS_LAN', 'NIVEL_BATERIA', 'MT_TOTAL', 'MT_USADA', 'DH_ATUAL',
    'VER_SB', 'VER_LAYOUT', 'ULTIMO_CF_E_SAT', 'LISTA_INICIAL', 'LISTA_FINAL', 'DH_CFE', 'DH_ULTIMA', 'CERT_EMISSAO',
    'CERT_VENCIMENTO', 'ESTADO_OPERACAO'];
const RECEIPT = ['numeroSessao', 'EEEEE', 'CCCC', 'mensagem', 'cod', 'mensagemSEFAZ', 'arquivoCFeBase64', 'timeStamp',
    'chaveConsulta', 'valorTotalCFe', 'CPFCNPJValue', 'assinaturaQRCODE'];

// Results are declared as char* and copied with FFI::string; a const char* result would be copied by FFI itself.
const DECLARATIONS = '
    char* ConsultarStatusOperacional(int numeroSessao, const char* codigoDeAtivacao);
    char* EnviarDadosVenda(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda);
    char* ConsultarNumeroSessao(int numeroSessao, const char* codigoDeAtivacao, int cNumeroDeSessao);
    char* ConsultarUltimaSessaoFiscal(int numeroSessao, const char* codigoDeAtivacao);
    uint32_t SAT_APP_GenRndNum(uint32_t n);
';

function show(string $title, string $text, array $names): array
{
    $fields = str_starts_with($text, 'SAT Erro[') ? [$text] : explode('|', $text);
    echo $title, "\n";
    foreach ($fields as $i => $field) {
        printf("  %-17s %s%s\n", $names[$i] ?? '?', substr($field, 0, 60), strlen($field) > 60 ? '...' : '');
    }
    return $fields;
}

// Session numbers stay below this: devices pad theirs to six digits, the library's own busy reply does not.
const SESSIONS = 100000;

// The session number must differ from the last one.
function next_session(int $session): int
{
    return ($session + 1) % SESSIONS;
}

function is_of(array $reply, int $session): bool
{
    return ctype_digit($reply[0]) && (int) $reply[0] === $session;
}

// What a reply settles of the sale with that session number. 06097 to 06099 are no refusals: where the line spoils an
// acknowledgement, the library sends the command again, and they are the device's answers to a repetition of what it
// has carried out. Only the library's own busy reply has no leading zeros: nothing was sent.
function settles_sale(array $reply, int $session): string
{
    $code = $reply[1] ?? '';
    if (!is_of($reply, $session) || !preg_match('/^06[0-9]{3}$/D', $code)) {
        return 'unknown';
    }
    if ($code === '06000') {
        return 'issued';
    }
    if ($code === '06098' && $reply[0] === (string) $session) {
        return 'not sent';
    }
    return in_array($code, ['06097', '06098', '06099'], true) ? 'unknown' : 'refused';
}

// What became of the sale with that session number. $keyBefore is the access key of the last receipt that was known
// before the sale, empty if there was none.
function find_out(FFI $sat, int $session, string $activationCode, string $keyBefore): string
{
    $isSold = fn(array $reply) => settles_sale($reply, $session) === 'issued' && ($reply[8] ?? '') !== $keyBefore;
    $query = next_session($session);
    $reply = FFI::string($sat->ConsultarNumeroSessao($query, $activationCode, $session));
    $stored = show('ConsultarNumeroSessao', $reply, RECEIPT);
    if ($isSold($stored)) {
        return 'issued';
    }
    if (settles_sale($stored, $session) === 'refused') {
        return 'refused';
    }
    // Only a device that was asked, and knows nothing of the sale, is asked for its last receipt.
    if (!is_of($stored, $session) && !in_array($stored[1] ?? '', ['11003', '11099'], true)) {
        return 'unknown';
    }

    $reply = FFI::string($sat->ConsultarUltimaSessaoFiscal(next_session($query), $activationCode));
    $last = show('ConsultarUltimaSessaoFiscal', $reply, RECEIPT);
    if ($isSold($last)) {
        return 'issued';
    }
    if (settles_sale($last, $session) === 'refused') {
        return 'refused';
    }
    $unchanged = $keyBefore === '' ? ($last[1] ?? '') === '19003' : ($last[8] ?? '') === $keyBefore;
    return $unchanged ? 'not issued' : 'unknown';
}

function main(string $library, string $activationCode, string $saleFile): int
{
    $sat = FFI::cdef(DECLARATIONS, $library);

    $session = $sat->SAT_APP_GenRndNum(SESSIONS);
    $reply = FFI::string($sat->ConsultarStatusOperacional($session, $activationCode));
    $status = show('ConsultarStatusOperacional', $reply, STATUS);
    if (!is_of($status, $session) || ($status[1] ?? '') !== '10000') {
        return 1;
    }

    // A till writes both down before it sells, where a power failure does not reach them.
    $session = next_session($session);
    $keyBefore = $status[array_search('ULTIMO_CF_E_SAT', STATUS, true)] ?? '';
    $reply = FFI::string($sat->EnviarDadosVenda($session, $activationCode, file_get_contents($saleFile)));
    $sale = show('EnviarDadosVenda', $reply, RECEIPT);
    $outcome = settles_sale($sale, $session);
    if ($outcome === 'unknown') {
        $outcome = find_out($sat, $session, $activationCode, $keyBefore);
    }
    echo '=> ', $outcome, "\n";
    return ['issued' => 0, 'unknown' => 3][$outcome] ?? 1;
}

if ($argc !== 4) {
    fwrite(STDERR, "usage: php venda.php LIBRARY ACTIVATION_CODE SALE_FILE\n");
    exit(2);
}
exit(main($argv[1], $argv[2], $argv[3]));
