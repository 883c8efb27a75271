<?php
// A till in PHP: asks the device how it is and sells.
//
//   php venda.php LIBRARY ACTIVATION_CODE SALE_FILE
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

function main(string $library, string $activationCode, string $saleFile): int
{
    $sat = FFI::cdef(DECLARATIONS, $library);

    $session = $sat->SAT_APP_GenRndNum(1000000);
    $reply = FFI::string($sat->ConsultarStatusOperacional($session, $activationCode));
    $status = show('ConsultarStatusOperacional', $reply, STATUS);
    if (($status[1] ?? '') !== '10000') {
        return 1;
    }

    // The session number must differ from the last one.
    $session = ($session + 1) % 1000000;
    $reply = FFI::string($sat->EnviarDadosVenda($session, $activationCode, file_get_contents($saleFile)));
    $sale = show('EnviarDadosVenda', $reply, RECEIPT);
    return (int) $sale[0] === $session && ($sale[1] ?? '') === '06000' ? 0 : 1;
}

if ($argc !== 4) {
    fwrite(STDERR, "usage: php venda.php LIBRARY ACTIVATION_CODE SALE_FILE\n");
    exit(2);
}
exit(main($argv[1], $argv[2], $argv[3]));
