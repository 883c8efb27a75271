// A till in Go, linked against the library through cgo: asks the device how it is, sells, and finds out what became of
// the sale if its reply does not say.
//
//	venda ACTIVATION_CODE SALE_FILE
//
// Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again before you know.
package main

/*
#cgo pkg-config: talvex
#include <stdlib.h>
#include <talvex/talvex.h>
*/
import "C"

import (
	"fmt"
	"os"
	"strconv"
	"strings"
	"unsafe"
)

var statusNames = []string{"numeroSessao", "EEEEE", "mensagem", "cod", "mensagemSEFAZ", "NSERIE", "TIPO_LAN", "LAN_IP",
	"LAN_MAC", "LAN_MASK", "LAN_GW", "LAN_DNS_1", "LAN_DNS_2", "STATUS_LAN", "NIVEL_BATERIA", "MT_TOTAL", "MT_USADA",
	"DH_ATUAL", "VER_SB", "VER_LAYOUT", "ULTIMO_CF_E_SAT", "LISTA_INICIAL", "LISTA_FINAL", "DH_CFE", "DH_ULTIMA",
	"CERT_EMISSAO", "CERT_VENCIMENTO", "ESTADO_OPERACAO"}

var receiptNames = []string{"numeroSessao", "EEEEE", "CCCC", "mensagem", "cod", "mensagemSEFAZ", "arquivoCFeBase64",
	"timeStamp", "chaveConsulta", "valorTotalCFe", "CPFCNPJValue", "assinaturaQRCODE"}

// The library takes one call at a time: goroutines that share it need a mutex around these functions.

func consultarStatusOperacional(session int, code string) string {
	cCode := C.CString(code)
	defer C.free(unsafe.Pointer(cCode))
	// C.GoString copies the reply, which the next call overwrites.
	return C.GoString(C.ConsultarStatusOperacional(C.int(session), cCode))
}

func enviarDadosVenda(session int, code, sale string) string {
	cCode, cSale := C.CString(code), C.CString(sale)
	defer C.free(unsafe.Pointer(cCode))
	defer C.free(unsafe.Pointer(cSale))
	return C.GoString(C.EnviarDadosVenda(C.int(session), cCode, cSale))
}

func consultarNumeroSessao(session int, code string, asked int) string {
	cCode := C.CString(code)
	defer C.free(unsafe.Pointer(cCode))
	return C.GoString(C.ConsultarNumeroSessao(C.int(session), cCode, C.int(asked)))
}

func consultarUltimaSessaoFiscal(session int, code string) string {
	cCode := C.CString(code)
	defer C.free(unsafe.Pointer(cCode))
	return C.GoString(C.ConsultarUltimaSessaoFiscal(C.int(session), cCode))
}

func show(title, text string, names []string) []string {
	fields := []string{text}
	if !strings.HasPrefix(text, C.TALVEX_FAILURE_PREFIX) {
		fields = strings.Split(text, "|")
	}
	fmt.Println(title)
	for i, field := range fields {
		name := "?"
		if i < len(names) {
			name = names[i]
		}
		if len(field) > 60 {
			field = field[:60] + "..."
		}
		fmt.Printf("  %-17s %s\n", name, field)
	}
	return fields
}

func field(fields []string, index int) string {
	if index < len(fields) {
		return fields[index]
	}
	return ""
}

func isOf(fields []string, session int) bool {
	number, err := strconv.Atoi(field(fields, 0))
	return err == nil && number == session
}

const (
	issued    = "issued"
	refused   = "refused"
	notSent   = "not sent"
	notIssued = "not issued"
	unknown   = "unknown"
)

// Session numbers stay below this: devices pad theirs to six digits, the library's own busy reply does not.
const sessions = 100000

// The session number must differ from the last one.
func nextSession(session int) int {
	return (session + 1) % sessions
}

// What a reply settles of the sale with that session number. 06097 to 06099 are no refusals: where the line spoils an
// acknowledgement, the library sends the command again, and they are the device's answers to a repetition of what it
// has carried out. Only the library's own busy reply has no leading zeros: nothing was sent.
func settlesSale(reply []string, session int) string {
	code := field(reply, 1)
	switch {
	case !isOf(reply, session) || len(code) != 5 || !strings.HasPrefix(code, "06"):
		return unknown
	case code == "06000":
		return issued
	case code == "06098" && reply[0] == strconv.Itoa(session):
		return notSent
	case code == "06097" || code == "06098" || code == "06099":
		return unknown
	}
	return refused
}

// What became of the sale with that session number. keyBefore is the access key of the last receipt that was known
// before the sale, empty if there was none.
func findOut(session int, code, keyBefore string) string {
	isSold := func(reply []string) bool {
		return settlesSale(reply, session) == issued && field(reply, 8) != keyBefore
	}
	query := nextSession(session)
	stored := show("ConsultarNumeroSessao", consultarNumeroSessao(query, code, session), receiptNames)
	if isSold(stored) {
		return issued
	}
	if settlesSale(stored, session) == refused {
		return refused
	}
	// Only a device that was asked, and knows nothing of the sale, is asked for its last receipt.
	if answer := field(stored, 1); !isOf(stored, session) && answer != "11003" && answer != "11099" {
		return unknown
	}

	last := show("ConsultarUltimaSessaoFiscal", consultarUltimaSessaoFiscal(nextSession(query), code), receiptNames)
	if isSold(last) {
		return issued
	}
	if settlesSale(last, session) == refused {
		return refused
	}
	if keyBefore == "" && field(last, 1) == "19003" || keyBefore != "" && field(last, 8) == keyBefore {
		return notIssued
	}
	return unknown
}

func main() {
	if len(os.Args) != 3 {
		fmt.Fprintln(os.Stderr, "usage: venda ACTIVATION_CODE SALE_FILE")
		os.Exit(2)
	}
	code := os.Args[1]
	sale, err := os.ReadFile(os.Args[2])
	if err != nil {
		fmt.Fprintln(os.Stderr, err)
		os.Exit(1)
	}

	session := int(C.SAT_APP_GenRndNum(sessions))
	status := show("ConsultarStatusOperacional", consultarStatusOperacional(session, code), statusNames)
	if !isOf(status, session) || status[1] != "10000" {
		os.Exit(1)
	}

	// A till writes both down before it sells, where a power failure does not reach them.
	session = nextSession(session)
	keyBefore := field(status, 20) // ULTIMO_CF_E_SAT
	receipt := show("EnviarDadosVenda", enviarDadosVenda(session, code, string(sale)), receiptNames)
	outcome := settlesSale(receipt, session)
	if outcome == unknown {
		outcome = findOut(session, code, keyBefore)
	}
	fmt.Println("=> " + outcome)
	switch outcome {
	case issued:
		return
	case unknown:
		os.Exit(3)
	}
	os.Exit(1)
}
