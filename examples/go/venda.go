// A till in Go, linked against the library through cgo: asks the device how it is and sells.
//
//	venda ACTIVATION_CODE SALE_FILE
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

func answers(fields []string, session int, code string) bool {
	if len(fields) < 2 {
		return false
	}
	number, err := strconv.Atoi(fields[0])
	return err == nil && number == session && fields[1] == code
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

	session := int(C.SAT_APP_GenRndNum(1000000))
	status := show("ConsultarStatusOperacional", consultarStatusOperacional(session, code), statusNames)
	if !answers(status, session, "10000") {
		os.Exit(1)
	}

	// The session number must differ from the last one.
	session = (session + 1) % 1000000
	receipt := show("EnviarDadosVenda", enviarDadosVenda(session, code, string(sale)), receiptNames)
	if !answers(receipt, session, "06000") {
		os.Exit(1)
	}
}
