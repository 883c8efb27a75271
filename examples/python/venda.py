"""A till in Python: asks the device how it is and sells.

    venda.py LIBRARY ACTIVATION_CODE SALE_FILE
"""

import sys

from talvex import Talvex


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
    session = sat.draw_session()
    sale = sat.EnviarDadosVenda(session, activation_code, sale_xml)
    show("EnviarDadosVenda", sale)
    return 0 if sale.session == session and sale.code == "06000" else 1


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit("usage: venda.py LIBRARY ACTIVATION_CODE SALE_FILE")
    sys.exit(main(*sys.argv[1:]))
