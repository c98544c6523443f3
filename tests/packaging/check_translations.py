#!/usr/bin/env python3
"""Translation checks, run by CTest (label packaging):

- lupdate reads the sources without complaint (a tr() it cannot use is a text nobody sees
  translated);
- no user-visible literal reaches a widget, a message box or a dialog without tr() or
  translate(): a literal argument of the calls below is reported with its file and line,
  and so is a tr() or translate() of a variable, whose text lupdate cannot see. A literal
  that must stay as it is, or a helper checked by hand, carries `// notr` on its line;
- every text lupdate finds has a finished German translation.

    check_translations.py <source dir> <lupdate>
"""
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

SOURCE, LUPDATE = sys.argv[1], sys.argv[2]
CONSOLE = os.path.join(SOURCE, "security-console")
GERMAN = os.path.join(CONSOLE, "translations", "zorvik-dashboard_de.ts")

# Calls whose string arguments the user reads.
SINKS = (r"set(Text|WindowTitle|ToolTip|StatusTip|WhatsThis|PlaceholderText|InformativeText|DetailedText|"
         r"LabelText|Title|TabText|ItemText|ButtonText|OkButtonText|CancelButtonText|WindowIconText)|"
         r"add(Item|Tab|Action|Menu)|insertItem|showMessage|errorBox|"
         r"QMessageBox::(information|warning|critical|question|about)|QMessageBox\s+\w+|"
         r"QInputDialog::get\w+|QFileDialog::get\w+|QProgressDialog\s+\w+|"
         r"Q(Label|PushButton|CheckBox|RadioButton|GroupBox|Action|Menu)(\s+\w+)?")
CALL = re.compile(r"(?<!\w)(?:" + SINKS + r")\s*\(")
STRING = re.compile(r'"((?:[^"\\]|\\.)*)"')
RUNTIME_TR = re.compile(r"(?<![\w.>:])tr\s*\(|(?<!\w)(?:QCoreApplication|QApplication|QObject)::translate\s*\(")
TRANSLATED = re.compile(r"(?<!\w)(?:tr|translate|trUtf8|QT_TR_NOOP|QT_TRANSLATE_NOOP)\s*\(")
# Product names are written the same in every language.
UNTRANSLATED = {"Zorvik Dashboard", "Zorvik Security Pack"}


def strip_comments(text):
    """Blanks comments, keeping line numbers, string literals and `notr` markers."""
    out = []
    for line in text.split("\n"):
        marker = " notr" if re.search(r"//\s*notr\b", line) else ""
        line = re.sub(r'//(?=(?:[^"\\]|\\.)*$)(?:(?!").)*$', "", line) if "//" in line else line
        out.append(line + marker)
    joined = "\n".join(out)
    return re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group(0).count("\n"), joined, flags=re.S)


def arguments(text, start):
    """The top-level arguments of the call whose '(' ends at `start`, with their offsets."""
    depth, i, arg_start, args, quote = 0, start, start, [], None
    while i < len(text):
        c = text[i]
        if quote:
            if c == "\\":
                i += 1
            elif c == quote:
                quote = None
        elif c in "\"'":
            quote = c
        elif c in "([{":
            depth += 1
        elif c in ")]}":
            if depth == 0:
                args.append((arg_start, text[arg_start:i]))
                return args
            depth -= 1
        elif c == "," and depth == 0:
            args.append((arg_start, text[arg_start:i]))
            arg_start = i + 1
        i += 1
    return args


def literals_outside_tr(arg):
    """The string literals of an argument, leaving out those handed to tr() or translate()."""
    blanked = arg
    for call in TRANSLATED.finditer(arg):
        end = call.end()
        args = arguments(arg, end)
        stop = args[-1][0] + len(args[-1][1]) if args else end
        blanked = blanked[:call.start()] + " " * (stop - call.start()) + blanked[stop:]
    return STRING.finditer(blanked)


def user_visible(literal):
    words = re.sub(r"<[^>]*>|&\w+;|%\d|\\[nt]", " ", literal)
    if literal.strip() in UNTRANSLATED or re.match(r"^\s*(:/|\w+://)", literal):
        return False
    if re.fullmatch(r"\S*[./\-_]\S*", literal.strip()):  # a file name, a link command
        return False
    return re.search(r"[A-Za-z]{2,}", words) is not None


def escaped_literals():
    found = []
    for folder, _, files in os.walk(CONSOLE):
        for name in sorted(files):
            if not name.endswith(".cpp"):
                continue
            path = os.path.join(folder, name)
            with open(path, encoding="utf-8") as f:
                text = strip_comments(f.read())
            lines = text.split("\n")
            marked = set(re.findall(r"(\w+)\s*=\s*QT_TR(?:ANSLATE)?_NOOP\s*\(", text))
            for call in CALL.finditer(text):
                for offset, arg in arguments(text, call.end()):
                    for literal in literals_outside_tr(arg):
                        if not user_visible(literal.group(1)):
                            continue
                        number = text.count("\n", 0, offset + literal.start()) + 1
                        if not lines[number - 1].endswith(" notr"):
                            found.append(f'{os.path.relpath(path, SOURCE)}:{number}: "{literal.group(1)}" without tr()')
            for call in RUNTIME_TR.finditer(text):
                args = arguments(text, call.end())
                index = 0 if call.group(0).startswith("tr") else 1
                source = args[index][1].strip() if len(args) > index else ""
                number = text.count("\n", 0, call.start()) + 1
                if source.startswith('"') or source in marked or lines[number - 1].endswith(" notr"):
                    continue
                found.append(f"{os.path.relpath(path, SOURCE)}:{number}: {call.group(0)}{source}) hides its text "
                             "from lupdate (mark the text with QT_TR_NOOP/QT_TRANSLATE_NOOP where it is written)")
    return found


def lupdate_messages():
    """(context, source, comment) -> file:line of every text lupdate finds, and its complaints."""
    with tempfile.TemporaryDirectory() as tmp:
        ts = os.path.join(tmp, "all.ts")
        result = subprocess.run([LUPDATE, "-locations", "absolute", CONSOLE, "-ts", ts],
                                capture_output=True, text=True)
        complaints = [line for line in (result.stdout + result.stderr).splitlines()
                      if re.search(r"warning|error|cannot|can't", line, re.I)]
        if result.returncode != 0:
            complaints.append(f"lupdate ended with {result.returncode}")
        messages = {}
        if os.path.exists(ts):
            for key, message in ts_messages(ts):
                where = message.find("location")
                messages[key] = (f"{os.path.relpath(os.path.join(tmp, where.get('filename')), SOURCE)}:"
                                 f"{where.get('line')}" if where is not None else "?")
    return messages, complaints


def ts_messages(path):
    for context in ET.parse(path).getroot().iter("context"):
        name = context.findtext("name")
        for message in context.iter("message"):
            yield (name, message.findtext("source"), message.findtext("comment") or ""), message


def untranslated(messages):
    german = {key: message.find("translation") for key, message in ts_messages(GERMAN)}
    missing = []
    for key, where in sorted(messages.items(), key=lambda item: item[1]):
        translation = german.get(key)
        if translation is None or translation.get("type") in ("unfinished", "vanished", "obsolete") \
                or not (translation.text or list(translation)):
            text = key[1].replace("\n", "\\n")
            missing.append(f'{where}: "{text}" (context "{key[0]}") has no German translation')
    return missing


def main():
    messages, complaints = lupdate_messages()
    problems = [f"lupdate: {c}" for c in complaints] + escaped_literals() + untranslated(messages)
    for problem in problems:
        print(problem)
    print(f"{len(messages)} texts found by lupdate, {len(problems)} problems")
    if any("without tr()" in p for p in problems) or any("has no German" in p for p in problems):
        print("Wrap the text in tr() (or mark it `// notr`), then refresh the translations:\n"
              "    cmake --build build --target zd_lupdate  # and translate the new texts in "
              "security-console/translations/zorvik-dashboard_de.ts")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
