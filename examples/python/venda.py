"""A till in Python: asks the device how it is, sells, and finds out what became of the sale if its reply does not say.

    venda.py LIBRARY ACTIVATION_CODE SALE_FILE

Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again before you know.
"""

import sys

from talvex import ISSUED, SALE, UNKNOWN, Talvex


def show(function, reply):
    print(function)
    for name, value in reply.fields.items():
        print("  %-17s %s%s" % (name, value[:60], "..." if len(value) > 60 else ""))
    if reply.failure is not None:
        print("  " + reply.text)


def main(library, activation_code, sale_file):
    sat = Talvex(library)

    status = sat.ConsultarStatusOperacional(sat.draw_session(), activation_code)
    show("ConsultarStatusOperacional", status)
    if status.code != "10000":
        return 1

    with open(sale_file, encoding="utf-8") as file:
        sale_xml = file.read()
    # The session number must differ from the last one. A till writes it down, with key_before, before it sells.
    session = (status.session + 1) % 100000
    key_before = status.fields["ULTIMO_CF_E_SAT"]
    sale = sat.EnviarDadosVenda(session, activation_code, sale_xml)
    show("EnviarDadosVenda", sale)
    outcome = sale.settles(session, SALE)
    if outcome == UNKNOWN:
        outcome, answer = sat.find_out(session, SALE, activation_code, key_before)
        show("What became of it", answer)
    print("=> " + outcome)
    return {ISSUED: 0, UNKNOWN: 3}.get(outcome, 1)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit("usage: venda.py LIBRARY ACTIVATION_CODE SALE_FILE")
    sys.exit(main(*sys.argv[1:]))
