"""talvex-hub as people and scripts meet it."""

import os
import subprocess

from support import HUB, HubTest, environment, main


class CommandLineTest(HubTest):
    def test_help_in_both_languages(self):
        for language, word in (("C.UTF-8", "First steps"), ("pt_BR.UTF-8", "Primeiros passos")):
            done = subprocess.run([HUB, "--help"], capture_output=True, text=True,
                                  env={**environment(), "LANG": language})
            self.assertEqual(done.returncode, 0)
            for text in (word, "serve", "till", "device", "operations", "receipts", "check"):
                self.assertIn(text, done.stdout)

    def test_wrong_usage_and_configuration(self):
        hub = self.hub(start=False)
        hub.command("nothing", status=2)
        hub.command("till", "add", "--name", "x", "--role", "king", status=2)
        with open(hub.config, "a") as file:
            file.write("colour = 1\n")
        hub.command("serve", status=2)

    def test_nobody_there(self):
        hub = self.hub(start=False)
        hub.command("device", "list", status=5)

    def test_a_day_at_the_shop(self):
        device, hub, till = self.open_shop()
        sold = till.sell("k1")
        self.assertIn("ready", hub.command("device", "list"))
        self.assertIn("08000", hub.command("device", "test"))
        self.assertIn("Caixa 1", hub.command("till", "list"))
        self.assertIn(sold.receipt, hub.command("receipts", "list", "--till", "Caixa 1"))
        self.assertIn("k1", hub.command("operations", "list"))
        self.assertEqual(hub.command("operations", "list", "--state", "undecided"), "")
        hub.command("operations", "decide", "1", "not-issued", "--reason", "x", status=1)
        hub.command("check")
        os.chmod(os.path.join(self.folder, "code"), 0o644)
        hub.command("check", status=1)

    def test_defaults_without_a_configuration(self):
        """The journal in the user's state folder, and a hub that waits for a device."""
        home = os.path.join(self.folder, "home")
        done = subprocess.run([HUB, "till", "add", "--name", "x"], capture_output=True, text=True,
                              env={**environment(), "HOME": home})
        self.assertEqual(len(done.stdout), 65)
        self.assertTrue(os.path.exists(os.path.join(home, ".local/state/talvex-hub/journal.sqlite")))


if __name__ == "__main__":
    main()
