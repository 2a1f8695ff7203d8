"""The command line: help, wrong use, files that cannot be read, outputs that cannot be written."""
import os
import re
import socket
import subprocess
import unittest

import command
from command import CommandTest, pevrin
from movies import atom, small_movie


class Usage(CommandTest):
    def test_help_and_version_go_to_standard_output(self):
        for arguments, words in (
            (["--help"], ["inspect", "--version"]),
            (["inspect", "--help"], ["FILE", "--json", "--verify", "Exit status", "errors", "descriptions"]),
            (["--version"], ["pevrin "]),
        ):
            result = pevrin(*arguments)
            self.assertEqual((result.status, result.stderr), (0, ""))
            for word in words:
                self.assertIn(word, result.stdout.decode())
        self.assertRegex(pevrin("--version").stdout.decode(), r"^pevrin \d+\.\d+\.\d+\n$")

    def test_wrong_use_is_told_on_standard_error(self):
        for arguments in ([], ["inspect"], ["inspect", "a", "b"], ["inspect", "--xml", "a"], ["explode", "a"], ["--json"]):
            result = pevrin(*arguments)
            self.assertEqual((result.status, result.stdout), (2, b""), arguments)
            self.assertRegex(result.stderr, r"^pevrin: .+\nSee: pevrin (inspect )?--help\n$")

        self.assertIn("explode is not a subcommand", pevrin("explode", "a").stderr)

    def test_files_that_cannot_be_read(self):
        fifo, sock = os.path.join(self.folder, "fifo"), os.path.join(self.folder, "socket")
        os.mkfifo(fifo)
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        listener.bind(sock)
        for path, words in (
            (os.path.join(self.folder, "none.mp4"), "No such file or directory"),
            (os.path.join(self.write(b"x"), "inside"), "Not a directory"),
            (self.folder, "Is a directory"),
            (fifo, "Not a regular file"),
            (sock, "Not a regular file"),
            ("/dev/null", "Not a regular file"),
            ("", "No such file or directory"),
        ):
            for more in ([], ["--json"]):
                result = pevrin("inspect", *more, path)
                self.assertEqual((result.status, result.stdout), (2, b""), path)
                self.assertEqual(result.stderr.count("\n"), 1)
                self.assertTrue(result.stderr.startswith(f"pevrin: {path}: {words}"), result.stderr)

    @unittest.skipIf(os.geteuid() == 0, "root may read everything")
    def test_no_permission(self):
        path = self.write(small_movie())
        os.chmod(path, 0)
        result = pevrin("inspect", path)
        self.assertEqual((result.status, result.stderr), (2, f"pevrin: {path}: Permission denied\n"))

    def test_shapes_of_messages(self):
        path = self.write(atom("moov", atom("trak", atom("mdia", size=3))))
        result = pevrin("inspect", path)
        self.assertEqual(result.status, 1)
        self.assertEqual(
            result.stderr,
            f"pevrin: {path}: moov/trak/mdia at byte 16: its size is 3 bytes, less than its header of 8 (status -12894)\n",
        )

    def test_file_names_that_are_not_plain(self):
        for name, in_json, in_text in (
            (b"caf\xe9.mp4", "caf\ufffd.mp4", b"caf\xe9.mp4"),
            ("größe \U0001f3ac.mp4".encode(), "größe \U0001f3ac.mp4", "größe \U0001f3ac.mp4".encode()),
            (b'a"b\\c\n\x1b[31m.mp4', 'a"b\\c\n\x1b[31m.mp4', b'a"b\\c\\x0a\\x1b[31m.mp4'),
            (b"--json", "--json", b"--json"),
        ):
            path = os.path.join(self.folder.encode(), name)
            with open(path, "wb") as file:
                file.write(small_movie())
            told = pevrin(b"inspect", b"--json", path)
            self.assertEqual(told.status, 0)
            self.assertEqual(told.json["file"], self.folder + "/" + in_json)
            first = pevrin(b"inspect", path).stdout.split(b"\n")[0]
            self.assertTrue(first.startswith(self.folder.encode() + b"/" + in_text + b": "), first)
        here = subprocess.run([command.PEVRIN, "inspect", "--", "--json"], cwd=self.folder, capture_output=True)
        self.assertEqual((here.returncode, here.stderr), (0, b""))

    def test_outputs_that_fail(self):
        path = self.write(atom("free") * 200_000)
        for more in ([], ["--json"]):
            child = subprocess.Popen([command.PEVRIN, "inspect", *more, path], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            child.stdout.read(10)
            child.stdout.close()
            self.assertEqual(child.stderr.read(), b"", "whoever closed the pipe has seen enough")
            child.stderr.close()
            self.assertEqual(child.wait(command.HANG_SECONDS), 2)
            with open("/dev/full", "wb") as full:
                done = subprocess.run([command.PEVRIN, "inspect", *more, path], stdout=full, stderr=subprocess.PIPE)
            self.assertEqual(done.returncode, 2)
            self.assertEqual(done.stderr, b"pevrin: standard output: No space left on device\n")
        for closing in (">&-", "2>&-", ">&- 2>&-", "<&- >&- 2>&-"):
            done = subprocess.run(["sh", "-c", f'"$0" inspect "$1" {closing}', command.PEVRIN, path], capture_output=True)
            self.assertIn(done.returncode, (0, 2), closing)

    def test_the_same_file_gives_the_same_bytes(self):
        path = self.write(small_movie())
        self.assertEqual(pevrin("inspect", "--json", path).stdout, pevrin("inspect", path, "--json").stdout)
        self.assertIsNone(re.search(rb"[^\n -~]", pevrin("inspect", path).stdout), "plain ASCII")
