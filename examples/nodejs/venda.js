// A till in Node.js: asks the device how it is, sells, and finds out what became of the sale if its reply does not say.
//
//   node venda.js LIBRARY ACTIVATION_CODE SALE_FILE
//
// Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again before you know.
'use strict';

const fs = require('fs');
const koffi = require('koffi');

const RECEIPT = ['numeroSessao', 'EEEEE', 'CCCC', 'mensagem', 'cod', 'mensagemSEFAZ', 'arquivoCFeBase64', 'timeStamp',
  'chaveConsulta', 'valorTotalCFe', 'CPFCNPJValue', 'assinaturaQRCODE'];
const STATUS = ['numeroSessao', 'EEEEE', 'mensagem', 'cod', 'mensagemSEFAZ', 'NSERIE', 'TIPO_LAN', 'LAN_IP', 'LAN_MAC',
  'LAN_MASK', 'LAN_GW', 'LAN_DNS_1', 'LAN_DNS_2', 'STATUS_LAN', 'NIVEL_BATERIA', 'MT_TOTAL', 'MT_USADA', 'DH_ATUAL',
  'VER_SB', 'VER_LAYOUT', 'ULTIMO_CF_E_SAT', 'LISTA_INICIAL', 'LISTA_FINAL', 'DH_CFE', 'DH_ULTIMA', 'CERT_EMISSAO',
  'CERT_VENCIMENTO', 'ESTADO_OPERACAO'];

function load(path) {
  const library = koffi.load(path);
  // A result of type "const char *" becomes a JavaScript string, which is a copy. These calls block the event loop
  // for as long as the device takes; a server makes them on a worker thread, one at a time.
  return {
    status: library.func('const char *ConsultarStatusOperacional(int numeroSessao, const char *codigoDeAtivacao)'),
    sell: library.func('const char *EnviarDadosVenda(int numeroSessao, const char *codigoDeAtivacao, const char *dadosVenda)'),
    session: library.func('const char *ConsultarNumeroSessao(int numeroSessao, const char *codigoDeAtivacao, int cNumeroDeSessao)'),
    lastReceipt: library.func('const char *ConsultarUltimaSessaoFiscal(int numeroSessao, const char *codigoDeAtivacao)'),
    drawNumber: library.func('uint32_t SAT_APP_GenRndNum(uint32_t n)'),
  };
}

function show(title, text, names) {
  const fields = text.startsWith('SAT Erro[') ? [text] : text.split('|');
  console.log(title);
  fields.forEach((field, i) => {
    console.log('  ' + (names[i] || '?').padEnd(18) + field.slice(0, 60) + (field.length > 60 ? '...' : ''));
  });
  return fields;
}

// Session numbers stay below this: devices pad theirs to six digits, the library's own busy reply does not.
const SESSIONS = 100000;

// The session number must differ from the last one.
const nextSession = (session) => (session + 1) % SESSIONS;

const isOf = (reply, session) => /^[0-9]+$/.test(reply[0]) && Number(reply[0]) === session;

// What a reply settles of the sale with that session number. 06097 to 06099 are no refusals: where the line spoils an
// acknowledgement, the library sends the command again, and they are the device's answers to a repetition of what it
// has carried out. Only the library's own busy reply has no leading zeros: nothing was sent.
function settlesSale(reply, session) {
  const code = reply[1] || '';
  if (!isOf(reply, session) || !/^06[0-9]{3}$/.test(code)) return 'unknown';
  if (code === '06000') return 'issued';
  if (code === '06098' && reply[0] === String(session)) return 'not sent';
  return ['06097', '06098', '06099'].includes(code) ? 'unknown' : 'refused';
}

// What became of the sale with that session number. keyBefore is the access key of the last receipt that was known
// before the sale, empty if there was none.
function findOut(sat, session, activationCode, keyBefore) {
  const isSold = (reply) => settlesSale(reply, session) === 'issued' && reply[8] !== keyBefore;
  const query = nextSession(session);
  const stored = show('ConsultarNumeroSessao', sat.session(query, activationCode, session), RECEIPT);
  if (isSold(stored)) return 'issued';
  if (settlesSale(stored, session) === 'refused') return 'refused';
  // Only a device that was asked, and knows nothing of the sale, is asked for its last receipt.
  if (!isOf(stored, session) && !['11003', '11099'].includes(stored[1])) return 'unknown';

  const last = show('ConsultarUltimaSessaoFiscal', sat.lastReceipt(nextSession(query), activationCode), RECEIPT);
  if (isSold(last)) return 'issued';
  if (settlesSale(last, session) === 'refused') return 'refused';
  const unchanged = keyBefore ? last[8] === keyBefore : last[1] === '19003';
  return unchanged ? 'not issued' : 'unknown';
}

function main([libraryPath, activationCode, saleFile]) {
  const sat = load(libraryPath);

  let session = sat.drawNumber(SESSIONS);
  const status = show('ConsultarStatusOperacional', sat.status(session, activationCode), STATUS);
  if (!isOf(status, session) || status[1] !== '10000') return 1;

  // A till writes both down before it sells, where a power failure does not reach them.
  session = nextSession(session);
  const keyBefore = status[STATUS.indexOf('ULTIMO_CF_E_SAT')];
  const sale = show('EnviarDadosVenda', sat.sell(session, activationCode, fs.readFileSync(saleFile, 'utf8')), RECEIPT);
  let outcome = settlesSale(sale, session);
  if (outcome === 'unknown') outcome = findOut(sat, session, activationCode, keyBefore);
  console.log('=> ' + outcome);
  return { issued: 0, unknown: 3 }[outcome] ?? 1;
}

if (process.argv.length !== 5) {
  console.error('usage: node venda.js LIBRARY ACTIVATION_CODE SALE_FILE');
  process.exitCode = 2;
} else {
  process.exitCode = main(process.argv.slice(2));
}
