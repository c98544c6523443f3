#!/usr/bin/env python3
"""Checks of the Debian package, run by CTest (label packaging).

    check_package.py build     makes the package once per test run (fixture set-up)
    check_package.py contents  its files, control fields and maintainer scripts
    check_package.py run       the unpacked program finds its files in the installed layout
    check_package.py lint      lintian, appstreamcli and desktop-file-validate
"""
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BUILD = os.environ["ZORVIK_BUILD_DIR"]
VERSION = os.environ["ZORVIK_VERSION"]
TRIPLET = os.environ["ZORVIK_TRIPLET"]
OUT = os.path.join(BUILD, "package-test")
ARCH = subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True, check=True).stdout.strip()
DEB = os.path.join(OUT, f"zorvik-dashboard_{VERSION}_{ARCH}.deb")
ROOT = os.path.join(OUT, "root")
APPDIR = "usr/lib/zorvik/dashboard"
LIBDIR = f"usr/lib/{TRIPLET}"


def run(cmd, **kw):
    return subprocess.run(cmd, capture_output=True, text=True, **kw)


def build():
    """Makes the package and unpacks it into a fresh root."""
    shutil.rmtree(OUT, ignore_errors=True)
    os.makedirs(OUT)
    made = run(["cpack", "-G", "DEB", "-B", OUT, "--config", os.path.join(BUILD, "CPackConfig.cmake")], cwd=BUILD)
    if made.returncode != 0 or not os.path.exists(DEB):
        sys.exit(f"cpack did not make {DEB}:\n{made.stdout}\n{made.stderr}")
    subprocess.run(["dpkg-deb", "-x", DEB, ROOT], check=True)
    print(DEB)


class Contents(unittest.TestCase):
    def entries(self):
        """path -> (mode string, link target) from dpkg-deb -c."""
        listing = run(["dpkg-deb", "-c", DEB], check=True).stdout.splitlines()
        result = {}
        for line in listing:
            fields = line.split(None, 5)
            mode, owner, name = fields[0], fields[1], fields[5]
            self.assertEqual(owner, "root/root", line)
            target = None
            if " -> " in name:
                name, target = name.split(" -> ", 1)
            result[name.lstrip(".").rstrip("/") or "/"] = (mode, target)
        return result

    def test_files(self):
        entries = self.entries()
        table = [
            # path, mode, link target
            (f"/{APPDIR}/zorvik-dashboard", "-rwxr-xr-x", None),
            ("/usr/bin/zorvik-dashboard", "lrwxrwxrwx", "../lib/zorvik/dashboard/zorvik-dashboard"),
            (f"/{APPDIR}/scripts/upgrade.sh", "-rwxr-xr-x", None),
            (f"/{LIBDIR}/libqvlogger.so.0", "lrwxrwxrwx", "libqvlogger.so.0.1"),
            (f"/{LIBDIR}/libqvtoken.so.0", "lrwxrwxrwx", "libqvtoken.so.0.1"),
            (f"/{LIBDIR}/libqvtoken_gui.so.0", "lrwxrwxrwx", "libqvtoken_gui.so.0.1"),
            (f"/{LIBDIR}/pkcs11/libzorvik-cryptoki.so", "lrwxrwxrwx", "libzorvik-cryptoki.so.3"),
            ("/usr/share/p11-kit/modules/zorvik-cryptoki.module", "-rw-r--r--", None),
            ("/etc/zorvik/cryptoki.conf", "-rw-r--r--", None),
            ("/usr/share/applications/zorvik-dashboard.desktop", "-rw-r--r--", None),
            ("/etc/xdg/autostart/zorvik-dashboard.desktop", "-rw-r--r--", None),
            ("/usr/share/metainfo/com.zorvik.dashboard.metainfo.xml", "-rw-r--r--", None),
            ("/usr/share/icons/hicolor/scalable/apps/zorvik-dashboard.svg", "-rw-r--r--", None),
            ("/usr/share/icons/hicolor/48x48/apps/zorvik-dashboard.png", "-rw-r--r--", None),
            ("/usr/share/man/man1/zorvik-dashboard.1.gz", "-rw-r--r--", None),
            ("/usr/share/zorvik-dashboard/translations/zorvik-dashboard_de.qm", "-rw-r--r--", None),
            ("/usr/share/doc/zorvik-dashboard/copyright", "-rw-r--r--", None),
            ("/usr/share/doc/zorvik-dashboard/changelog.gz", "-rw-r--r--", None),
        ]
        for path, mode, target in table:
            with self.subTest(path=path):
                self.assertIn(path, entries)
                self.assertEqual(entries[path], (mode, target))
        # Nothing for developers, nothing outside the package's places, no loose directories.
        for path, (mode, _) in entries.items():
            with self.subTest(path=path):
                self.assertFalse(path.endswith((".a", ".h")) or re.search(r"lib(qv\w+)\.so$", path), path)
                self.assertTrue(path in ("/", "/etc", "/usr") or path.startswith(("/etc/", "/usr/")), path)
                if mode.startswith("d"):
                    self.assertEqual(mode, "drwxr-xr-x", path)

    def test_control(self):
        fields = {f: run(["dpkg-deb", "-f", DEB, f], check=True).stdout.strip()
                  for f in ("Package", "Version", "Architecture", "Depends", "Maintainer", "Section")}
        self.assertEqual(fields["Package"], "zorvik-dashboard")
        self.assertEqual(fields["Version"], VERSION)
        self.assertEqual(fields["Architecture"], ARCH)
        self.assertTrue(fields["Maintainer"] and fields["Section"])
        depends = [d.split()[0] for d in fields["Depends"].split(", ")]
        # From dpkg-shlibdeps: the libraries the binaries link against, and never ourselves.
        for package in ("libc6", "libqt5widgets5", "libqt5network5", "libssl3", "libpcsclite1", "libjsoncpp25"):
            self.assertIn(package, depends)
        self.assertNotIn("zorvik-dashboard", depends)

    def test_maintainer_files(self):
        with tempfile.TemporaryDirectory() as control:
            subprocess.run(["dpkg-deb", "-e", DEB, control], check=True)
            with open(os.path.join(control, "conffiles")) as f:
                conffiles = f.read().split()
            self.assertEqual(sorted(conffiles),
                             ["/etc/xdg/autostart/zorvik-dashboard.desktop", "/etc/zorvik/cryptoki.conf"])
            with open(os.path.join(control, "postinst")) as f:
                self.assertIn("/var/log/zorvik", f.read())
        with open(os.path.join(ROOT, "etc/zorvik/cryptoki.conf")) as f:
            self.assertIn(f"backend = /usr/lib/{TRIPLET}/opensc-pkcs11.so", f.read().splitlines())


class Installed(unittest.TestCase):
    """The unpacked program, started from /usr/bin, in German."""

    def setUp(self):
        self.home = tempfile.mkdtemp(prefix="zorvik-pkg-")
        self.env = {k: v for k, v in os.environ.items() if not k.startswith(("ZORVIK_", "LC_", "LD_"))}
        for name in ("tmp", "config", "state", "log", "syslog", "runtime"):
            os.makedirs(os.path.join(self.home, name), mode=0o700)
        self.env.update(HOME=self.home, TMPDIR=f"{self.home}/tmp", XDG_CONFIG_HOME=f"{self.home}/config",
                        XDG_STATE_HOME=f"{self.home}/state", XDG_RUNTIME_DIR=f"{self.home}/runtime",
                        ZORVIK_LOG_DIR=f"{self.home}/log", ZORVIK_SYSTEM_LOG_DIR=f"{self.home}/syslog",
                        ZORVIK_CRYPTOKI_BACKEND="/nonexistent/backend.so", QT_QPA_PLATFORM="offscreen",
                        LANG="de_DE.UTF-8", LANGUAGE="de")
        self.program = os.path.join(ROOT, "usr/bin/zorvik-dashboard")
        self.log = os.path.join(self.home, "log/dashboard.log")

    def tearDown(self):
        shutil.rmtree(self.home, ignore_errors=True)

    def wait_for_log(self, pattern, process, seconds=30):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            if os.path.exists(self.log):
                with open(self.log, errors="replace") as f:
                    found = re.search(pattern, f.read())
                if found:
                    return found
            if process.poll() is not None:
                break
            time.sleep(0.1)
        with open(self.log, errors="replace") if os.path.exists(self.log) else open(os.devnull) as f:
            self.fail(f"no log line matching {pattern!r}; log:\n{f.read()}")

    def test_tray_then_exit(self):
        app = subprocess.Popen([self.program, "--tray"], env=self.env, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE, text=True)
        try:
            self.wait_for_log(r"DashboardWindow begin init", app)
            root = os.path.realpath(ROOT)
            files = self.wait_for_log(r"Program files: module (\S+), upgrade script (\S+)", app)
            self.assertEqual(files.group(1), f"{root}/{LIBDIR}/pkcs11/libzorvik-cryptoki.so")
            self.assertEqual(files.group(2), f"{root}/{APPDIR}/scripts/upgrade.sh")
            translations = self.wait_for_log(r"Translations: (\S+)", app)
            self.assertEqual(translations.group(1),
                             f"{root}/usr/share/zorvik-dashboard/translations/zorvik-dashboard_de.qm")
            # Every library of ours comes from the unpacked tree, none from the build tree.
            with open(f"/proc/{app.pid}/maps") as f:
                ours = {line.split()[-1] for line in f if re.search(r"/lib(qv|zorvik)[\w-]*\.so", line)}
            self.assertEqual(len(ours), 4, ours)
            for path in ours:
                self.assertTrue(path.startswith(root + "/"), path)
            ended = run([self.program, "--exit"], env=self.env, timeout=30)
            self.assertEqual(ended.returncode, 0, ended.stderr)
            self.assertEqual(app.wait(timeout=30), 0)
        finally:
            if app.poll() is None:
                app.send_signal(signal.SIGKILL)
                app.wait()


class Lint(unittest.TestCase):
    def test_lintian(self):
        # Errors and warnings fail; what remains is overridden in the package, with its reason.
        result = run(["lintian", "--fail-on", "error,warning", "--tag-display-limit", "0", DEB])
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_desktop_files(self):
        for path in ("usr/share/applications/zorvik-dashboard.desktop", "etc/xdg/autostart/zorvik-dashboard.desktop"):
            with self.subTest(path=path):
                result = run(["desktop-file-validate", os.path.join(ROOT, path)])
                # Hints are suggestions; errors and warnings are not.
                complaints = [line for line in result.stdout.splitlines() if ": hint: " not in line]
                self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
                self.assertEqual(complaints, [])

    def test_appstream(self):
        metainfo = os.path.join(ROOT, "usr/share/metainfo/com.zorvik.dashboard.metainfo.xml")
        result = run(["appstreamcli", "validate", "--no-net", "--pedantic", metainfo])
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)


if __name__ == "__main__":
    what = sys.argv[1]
    if what == "build":
        build()
    else:
        suite = {"contents": Contents, "run": Installed, "lint": Lint}[what]
        result = unittest.TextTestRunner(verbosity=2).run(unittest.defaultTestLoader.loadTestsFromTestCase(suite))
        sys.exit(0 if result.wasSuccessful() else 1)
