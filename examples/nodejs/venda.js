// A till in Node.js: asks the device how it is and sells.
//
//   node venda.js LIBRARY ACTIVATION_CODE SALE_FILE
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

function main([libraryPath, activationCode, saleFile]) {
  const sat = load(libraryPath);

  let session = sat.drawNumber(1000000);
  const status = show('ConsultarStatusOperacional', sat.status(session, activationCode), STATUS);
  if (status[1] !== '10000') return 1;

  // The session number must differ from the last one.
  session = (session + 1) % 1000000;
  const sale = show('EnviarDadosVenda', sat.sell(session, activationCode, fs.readFileSync(saleFile, 'utf8')), RECEIPT);
  return Number(sale[0]) === session && sale[1] === '06000' ? 0 : 1;
}

if (process.argv.length !== 5) {
  console.error('usage: node venda.js LIBRARY ACTIVATION_CODE SALE_FILE');
  process.exitCode = 2;
} else {
  process.exitCode = main(process.argv.slice(2));
}
