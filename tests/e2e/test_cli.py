#!/usr/bin/env python3
"""PelmoWin's command line as a user types it: refused lines print the usage and reach nothing,
accepted forms reach the device on COM3 (a pseudo-terminal)."""

from __future__ import annotations

import pelmo_e2e
import wire
from expected import BAD_PARAMS, BANNER, Label, ok, step
from pelmo_e2e import E2eCase, PtySerial

BAD_LINES = [
    [],
    ["@3"],  # a single argument always fails
    ["-i"],
    ["-i", "fw.bin"],  # no connection
    ["@3", "fw.bin"],  # no option
    ["#10.0.0", "-i"],  # three numbers
    ["#a.b.c.d", "-i"],
    ["@3", "-iv"],  # shown in the usage text, yet not an option
    ["@3", "-ewvx"],
    ["@3", "-i", "-bogus"],
    ["@0", "-i"],
    ["@-2", "-i"],
    ["@x", "-i"],
    ["@", "-i"],
    ["*", "@3", "-i"],
    ["*abc", "@3", "-i"],
    ["@3", "-r", ""],  # an empty name where a file is expected
    ["@3", "-"],
]


class CommandLineSuite(E2eCase):
    @classmethod
    def setUpClass(cls) -> None:
        pelmo_e2e.require_program()
        pelmo_e2e.require_device()

    def setUp(self) -> None:
        super().setUp()
        self.topology = PtySerial(self.folder)
        self.topology.setup()
        self.addCleanup(self.topology.teardown)

    def test_refused_command_lines_print_the_usage_and_send_nothing(self):
        device = self.device()
        for args in BAD_LINES:
            with self.subTest(args=args):
                result = self.run_pelmo(*args, connect=False)
                self.assertRun(result, BAD_PARAMS, 255)
                self.assertSent(device, [])

    def test_accepted_forms(self):
        device = self.device()
        cases = [
            # (arguments, console body, requests sent)
            (["-IO", "@3"], step(Label.BOOT_INFO, ok(14)), wire.single("BOOTLOADER_INFO")),
            # A COM port anywhere on the line wins over an IP address.
            (["#10.0.0.1", "-Rctrl", "@3"], step(Label.READ_CTRL, ok(14)), wire.single("READ_CONTROL")),
            (["#10.0.0.300", "@3", "-ectrl"], step(Label.CLEAR_CTRL, ok(12)), wire.single("CLEAR_CONTROL")),
            (["*-50", "@3", "-rst"], step(Label.RESTART, ok(12)), wire.single("RESTART")),
            # The last option wins; erasing takes no file.
            (["@3", "-r", "-e", "x.bin"], step(Label.ERASE_FW, ok(10)), wire.single("ERASE_FW")),
            (["@5", "@3", "-e", "x.bin"], step(Label.ERASE_FW, ok(10)), wire.single("ERASE_FW")),
            # A name before the option is skipped: the read has no file to write.
            (["@3", "fw.bin", "-r"], step(Label.READ_FW, ok(10)), wire.chunked_read("READ_FW", 0, wire.SERIAL_CHUNK)),
        ]
        for args, body, sent in cases:
            with self.subTest(args=args):
                result = self.run_pelmo(*args, connect=False)
                self.assertEqual(0, result.returncode, result.describe())
                # The displays after the status line are the other suites' business.
                self.assertTrue(result.text.startswith(BANNER + body), result.describe())
                self.assertSent(device, sent)
        self.assertFalse((self.folder / "fw.bin").exists())
        self.assertFalse((self.folder / "x.bin").exists())


if __name__ == "__main__":
    pelmo_e2e.main()
