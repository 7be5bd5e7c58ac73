#!/usr/bin/env python3
"""PelmoWin's command line as typed: refused lines print the usage and reach nothing; accepted forms reach COM3."""

from __future__ import annotations

import pelmo_e2e
from expected import BAD_PARAMS, BANNER, SERIAL_CHUNK, Label, chunked_read, ok, single, step
from pelmo_e2e import PtyCase

BAD_LINES = [  # "-iv" is shown in the usage text, yet not an option
    [], ["@3"], ["-i"], ["-i", "fw.bin"], ["@3", "fw.bin"], ["#10.0.0", "-i"], ["#a.b.c.d", "-i"], ["@3", "-iv"],
    ["@3", "-ewvx"], ["@3", "-i", "-bogus"], ["@0", "-i"], ["@-2", "-i"], ["@x", "-i"], ["@", "-i"], ["*", "@3", "-i"],
    ["*abc", "@3", "-i"], ["@3", "-r", ""], ["@3", "-"]]


class CommandLineSuite(PtyCase):
    def test_command_lines(self):
        device = self.device()
        for args in BAD_LINES:
            with self.subTest(args=args):
                self.assertRun(self.run_pelmo(*args, connect=False), BAD_PARAMS, 255)
                self.assertSent(device, [])
        cases = [
            # (arguments, how the output begins, requests sent)
            (["-IO", "@3"], step(Label.BOOT_INFO, ok(14)), single("BOOTLOADER_INFO")),
            # A COM port anywhere on the line wins over an IP address; the extra time-out may be negative.
            (["#10.0.0.1", "*-50", "-Rctrl", "@3"], step(Label.READ_CTRL, ok(14)), single("READ_CONTROL")),
            # The last option and the last port win; erasing takes no file.
            (["@5", "@3", "-r", "-e", "x.bin"], step(Label.ERASE_FW, ok(10)), single("ERASE_FW")),
            # A name before the option is skipped: the read has no file to write.
            (["@3", "fw.bin", "-r"], step(Label.READ_FW, ok(10)), chunked_read("READ_FW", 0, SERIAL_CHUNK)),
        ]
        for args, head, sent in cases:
            with self.subTest(args=args):
                result = self.run_pelmo(*args, connect=False)
                self.assertEqual(0, result.returncode, result.describe())
                self.assertTrue(result.text.startswith(BANNER + head), result.describe())
                self.assertSent(device, sent)
        self.assertEqual([], [p.name for p in self.folder.glob("*.bin")])


if __name__ == "__main__":
    pelmo_e2e.main()
