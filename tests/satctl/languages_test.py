"""English and Portuguese, by the locale, complete in both."""

import re

import support
from support import BUSY, LINK_FAILURE, NO_DEVICE, REFUSED, SUCCESS, USAGE, SatctlTest

PORTUGUESE = {"LANG": "pt_BR.UTF-8"}
COMMANDS = ["ativar-sat", "comunicar-certificado-icp-brasil", "enviar-dados-venda", "cancelar-ultima-venda",
            "consultar-sat", "teste-fim-a-fim", "consultar-status-operacional", "consultar-numero-sessao",
            "configurar-interface-de-rede", "associar-assinatura", "atualizar-software-sat", "extrair-logs",
            "bloquear-sat", "desbloquear-sat", "trocar-codigo-de-ativacao", "consultar-ultima-sessao-fiscal",
            "versao-dll-talvex", "recuperar", "doctor", "log", "ini", "cpf", "cnpj", "uf", "codigo", "base64"]
DEEPER = [("ini", "get"), ("ini", "set"), ("ini", "check"), ("base64", "encode"), ("base64", "decode")]

ENGLISH_WORDS = re.compile(r"(?<![-\w])(the|of|and|is|show|required|device|file|folder|number|usage|options|text|session|"
                           r"needed|missing|with|not|without|default|unknown|applied|holds|reply|failed)(?![-\w])", re.I)
PORTUGUESE_WORDS = re.compile(r"(?<![-\w])(o|de|não|mostrar|obrigatório|equipamento|arquivo|pasta|número|uso|opções|texto|"
                              r"sessão|falta|com|sem|padrão|resposta)(?![-\w])", re.I)


OPTION = re.compile(r"(?m)^  (?:-\w,)?(--[a-z-]+)")


class Help(SatctlTest):
    def help_of(self, *command, **variables):
        return self.run_satctl(*command, "--help", **variables).out

    def test_every_command_in_both(self):
        for command in [(), *((name,) for name in COMMANDS), *DEEPER]:
            with self.subTest(command):
                english, portuguese = self.help_of(*command), self.help_of(*command, **PORTUGUESE)
                self.assertEqual(OPTION.findall(english), OPTION.findall(portuguese))
                self.assertIsNone(ENGLISH_WORDS.search(portuguese), portuguese)
                self.assertIsNone(PORTUGUESE_WORDS.search(english), english)

    def test_it_lists_every_command_and_every_exit_status(self):
        for variables in ({}, PORTUGUESE):
            shown = self.help_of(**variables)
            for command in COMMANDS:
                self.assertRegex(shown, r"(?m)^  %s " % command)
            self.assertEqual(re.findall(r"(?m)^  (\d)  \S", shown), list("01234567"))

    def test_no_line_is_wider_than_a_manual(self):
        for variables in ({}, PORTUGUESE):
            for command in [(), *((name,) for name in COMMANDS)]:
                widest = max(self.help_of(*command, **variables).splitlines(), key=len)
                self.assertLessEqual(len(widest), 130, widest)


class Choice(SatctlTest):
    def test_lc_all_before_lc_messages_before_lang(self):
        cases = [({"LANG": "pt_BR.UTF-8"}, True), ({"LANG": "pt"}, True), ({"LANG": "en_US.UTF-8"}, False),
                 ({"LANG": "en_US", "LC_MESSAGES": "pt_BR"}, True), ({"LANG": "pt_BR", "LC_ALL": "C"}, False),
                 ({"LANG": "C", "LC_MESSAGES": "C", "LC_ALL": "pt_PT"}, True), ({"LANG": "pt_BR", "LC_ALL": ""}, True)]
        for variables, portuguese in cases:
            with self.subTest(variables):
                error = self.run_satctl(expected=USAGE, **variables).err
                self.assertEqual("falta o comando" in error, portuguese)
                self.assertEqual("a command is missing" in error, not portuguese)


class Messages(SatctlTest):
    def test_outcomes(self):
        self.start_emulator("--fault", "on ConsultarSAT nth=1 do nak 4", "--fault", "on BloquearSAT do processing 1",
                            "--fault", "on any session=33 do previous")
        cases = [(("consultar-sat",), LINK_FAILURE, "o resultado é desconhecido: a comunicação falhou"),
                 (("consultar-sat",), SUCCESS, "sessão "),
                 (("bloquear-sat",), BUSY, "o equipamento está ocupado com outra chamada"),
                 (("enviar-dados-venda", "--dados", "<CFe/>"), REFUSED, "conteúdo inválido; veja CCCC"),
                 (("consultar-sat", "--sessao", "33"), 6, "a resposta traz outro número de sessão"),
                 (("recuperar", "--sessao", "1"), REFUSED, "A sessão 1 não emitiu nada")]
        for arguments, status, text in cases:
            with self.subTest(arguments):
                self.assertIn(text, self.run_satctl(*arguments, expected=status, **PORTUGUESE).out)

    def test_no_device(self):
        self.write("SAT.ini", "[LOG]\nLogMode=0\n")
        done = self.run_satctl("consultar-sat", expected=NO_DEVICE, **PORTUGUESE)
        self.assertIn("=> no-device: nenhum equipamento encontrado", done.out)
        self.assertIn("satctl doctor diz o que falta.", done.err)

    def test_usage(self):
        cases = [(("consultar-sat", "--nada"), "argumento inesperado: --nada"),
                 (("nada",), "não existe o comando nada"),
                 (("enviar-dados-venda",), "--dados é obrigatório"),
                 (("consultar-sat", "--sessao", "1000000"), "valor 1000000 está fora da faixa 0 a 999999"),
                 (("consultar-sat", "--sessao"), "--sessao: 1 obrigatório faltando: NÚMERO"),
                 (("log", "--days", "x"), "--days"),
                 (("extrair-logs",), "falta o código de ativação"),
                 (("--library", "/nada", "consultar-sat"), "A biblioteca não pôde ser carregada")]
        for arguments, text in cases:
            with self.subTest(arguments):
                error = self.run_satctl(*arguments, expected=USAGE, code=None, **PORTUGUESE).err
                self.assertIn(text, error)
                self.assertIn("satctl: ", error)

    def test_doctor_and_ini_and_log(self):
        self.write_ini(more="AssociarAssinatura=9\n")
        doctor = self.run_satctl("doctor", "--root", self.folder, expected=REFUSED, **PORTUGUESE).out
        self.assertIn("nenhum equipamento no USB", doctor)
        self.assertIn("lido, mas sem efeito", doctor)
        self.assertIsNone(re.search(r"\b(the|without|applied|default|writable)\b", doctor), doctor)
        self.assertIn("lido, mas sem efeito", self.run_satctl("ini", "check", **PORTUGUESE).out)
        self.assertIn("nenhum log desse período", self.run_satctl("log", expected=REFUSED, **PORTUGUESE).err)

    def test_time_line(self):
        self.start_emulator(log_mode=5)
        self.sell()
        shown = self.run_satctl("log", "--calls", **PORTUGUESE).out
        self.assertIn("porta aberta", shown)
        self.assertIn("comando enviado, ", shown)
        self.assertIsNone(re.search(r"\b(port|sent|reply|bytes in)\b", shown), shown)


if __name__ == "__main__":
    support.main()
