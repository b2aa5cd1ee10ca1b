#!/usr/bin/python3
"""policies_test.py BUILD: holds the policy templates against the rules of their format, against
app/registry_names.h, and against the tool of the host build in the folder BUILD: it is run with each
value written as the policy writes it, and must heed it.
policies_test.py --self-test BUILD: spoils the templates in many ways, each of which must be found.

Exit code 0: the templates are right; 1: they are not, and each line says what is wrong.
"""
import contextlib
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import xml.etree.ElementTree

FOLDER = pathlib.Path(__file__).resolve().parent
HEADER = FOLDER.parent.parent / "app" / "registry_names.h"
NAMESPACE = "{http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions}"
ADMX = "zentpost.admx"
# The words with which an explanation begins the paragraphs of the three states, and says that it is about
# a preference.
LANGUAGES = {
    "en-US/zentpost.adml": ("Enabled:", "Disabled:", "Not configured:", "This is a preference and not a managed policy"),
    "de-DE/zentpost.adml": ("Aktiviert:", "Deaktiviert:", "Nicht konfiguriert:",
                            "Dies ist eine Voreinstellung und keine verwaltete Richtlinie"),
}
REDIRECTED = "Software\\WOW6432Node\\"
HIVES = {"User": ("HKEY_CURRENT_USER", "HKCU"), "Machine": ("HKEY_LOCAL_MACHINE", "HKLM")}
PRODUCT = {"policyNamespaces": {"prefix": "zentpost", "namespace": "Sollvex.Policies.Zentpost"}}

# What the formats have, as far as these templates use it: each element's required attributes, its optional
# ones, and its children in their order ("?" may be missing, "+" may stand several times, "|" one of these).
ADMX_GRAMMAR = {
    "policyDefinitions": ("revision schemaVersion", "", "policyNamespaces resources supportedOn? categories? policies?"),
    "policyNamespaces": ("", "", "target"),
    "target": ("prefix namespace", "", ""),
    "resources": ("minRequiredRevision", "", ""),
    "supportedOn": ("", "ref", "definitions?"),
    "definitions": ("", "", "definition+"),
    "definition": ("name displayName", "", ""),
    "categories": ("", "", "category+"),
    "category": ("name displayName", "explainText", "parentCategory?"),
    "policies": ("", "", "policy+"),
    "policy": ("name class displayName key", "explainText presentation valueName",
               "parentCategory supportedOn enabledValue? disabledValue? elements?"),
    "parentCategory": ("ref", "", ""),
    "enabledValue": ("", "", "decimal|string|delete"),
    "disabledValue": ("", "", "decimal|string|delete"),
    "elements": ("", "", "decimal|text"),
    "decimal": ("", "value id valueName minValue maxValue required storeAsText soft spin", ""),
    "text": ("id valueName", "maxLength required expandable soft", ""),
    "string": ("", "", ""),
    "delete": ("", "", ""),
}
ADML_GRAMMAR = {
    "policyDefinitionResources": ("revision schemaVersion", "", "displayName description resources"),
    "displayName": ("", "", ""),
    "description": ("", "", ""),
    "resources": ("", "", "stringTable presentationTable"),
    "stringTable": ("", "", "string+"),
    "string": ("id", "", ""),
    "presentationTable": ("", "", "presentation+"),
    "presentation": ("id", "", "decimalTextBox|textBox"),
    "decimalTextBox": ("refId", "defaultValue spin spinStep", ""),
    "textBox": ("refId", "", "label defaultValue?"),
    "label": ("", "", ""),
    "defaultValue": ("", "", ""),
}
CONTROLS = {"decimal": "decimalTextBox", "text": "textBox"}


def local(element):
    return element.tag.removeprefix(NAMESPACE)


def grammar_problems(name, element, grammar):
    tag = local(element)
    if not element.tag.startswith(NAMESPACE) or tag not in grammar:
        return [f"{name}: there is no element {element.tag}"]
    required, optional, children = grammar[tag]
    required, optional = set(required.split()), set(optional.split())
    problems = [f"{name}: {tag} has no attribute {each}" for each in sorted(required - set(element.attrib))]
    problems += [f"{name}: {tag} may not have the attribute {each}"
                 for each in sorted(set(element.attrib) - required - optional)]
    pattern = "".join(f"(?:(?:{word.rstrip('?+')}) ){word[len(word.rstrip('?+')):]}" for word in children.split())
    if not re.fullmatch(pattern, "".join(f"{local(child)} " for child in element)):
        problems.append(f"{name}: {tag} has the wrong children, or in the wrong order")
    for child in element:
        problems += grammar_problems(name, child, grammar)
    return problems


def find_all(root, *path):
    return root.findall("/".join(f"{NAMESPACE}{each}" for each in path))


def repeated(names):
    return sorted({each for each in names if names.count(each) > 1})


class Policy:
    """A policy of the template, and the registry values that it writes."""

    def __init__(self, element):
        self.element = element
        self.name = element.get("name")
        self.hive = HIVES[element.get("class")][0]
        self.key = element.get("key")
        self.parts = [part for each in find_all(element, "elements") for part in each]
        self.values = [each.get("valueName") for each in (element, *self.parts) if each.get("valueName")]
        self.is_for_32_bit = self.key.startswith(REDIRECTED)

    def key_of_program(self):
        """The key's name as the program has it that reads it."""
        return "Software\\" + self.key.removeprefix(REDIRECTED) if self.is_for_32_bit else self.key

    def state_value(self, state):
        """What the policy itself writes in that state; None where the value is deleted."""
        for each in find_all(self.element, state):
            kind = local(each[0])
            return {"decimal": lambda: int(each[0].get("value")), "string": lambda: each[0].text,
                    "delete": lambda: None}[kind]()
        return 1 if state == "enabledValue" else None

    def written(self, is_enabled, inputs):
        """Each value's name with its data, None where it is deleted."""
        data = {}
        if self.element.get("valueName"):
            data[self.element.get("valueName")] = self.state_value("enabledValue" if is_enabled else "disabledValue")
        for part in self.parts:
            typed = inputs[part.get("valueName")] if is_enabled else None
            is_number = local(part) == "decimal" and part.get("storeAsText") != "true"
            data[part.get("valueName")] = int(typed) if typed is not None and is_number else typed
        return data


def setting_names(header):
    """The keys of the tool's settings with the names of their values, as the core's header has them."""
    settings = {}
    for block in header.split("\n\n"):
        key, *names = re.findall(r'constexpr char16_t \w+\[\] = u"([^"]*)";', block) or [""]
        if key.startswith("Software\\\\Sollvex"):
            settings[key.replace("\\\\", "\\")] = names
    return settings


def parse(texts):
    return {name: xml.etree.ElementTree.fromstring(text.encode()) for name, text in texts.items()}


def id_problems(name, template, resources):
    """What the template refers to and the language lacks, or has for nothing."""
    problems = []
    text = xml.etree.ElementTree.tostring(template, encoding="unicode")
    for kind, table in (("string", "stringTable"), ("presentation", "presentationTable")):
        wanted = re.findall(rf"\$\({kind}\.(\w+)\)", text)
        entries = find_all(resources, "resources", table, kind)
        there = [each.get("id") for each in entries]
        problems += [f"{name}: the {kind} {each} is missing" for each in sorted(set(wanted) - set(there))]
        problems += [f"{name}: nothing uses the {kind} {each}" for each in sorted(set(there) - set(wanted))]
        problems += [f"{name}: the {kind} {each} is there twice" for each in repeated(there)]
        problems += [f"{name}: the {kind} {each.get('id')} is empty"
                     for each in entries if not "".join(each.itertext()).strip()]
    return problems


def presentation_problems(name, policy, resources):
    presentations = {each.get("id"): each for each in find_all(resources, "resources", "presentationTable", "presentation")}
    named = re.fullmatch(r"\$\(presentation\.(\w+)\)", policy.element.get("presentation", ""))
    if not policy.parts:
        return [f"{name}: {policy.name} has a presentation and no elements"] if named else []
    if not named or named[1] not in presentations:
        return [f"{name}: {policy.name} has no presentation"]
    shown = [(local(each), each.get("refId")) for each in presentations[named[1]]]
    meant = [(CONTROLS[local(each)], each.get("id")) for each in policy.parts]
    return [] if shown == meant else [f"{name}: {policy.name} has {meant}, its presentation shows {shown}"]


def explanation_problems(name, policy, resources):
    """An explanation names what is written, says what each state does, and that it is a preference."""
    strings = {each.get("id"): each.text or "" for each in find_all(resources, "resources", "stringTable", "string")}
    text = strings.get(policy.element.get("explainText", "")[len("$(string."):-1], "")
    paragraphs = text.split("\n\n")
    *states, preference = LANGUAGES[name]
    problems = [f"{name}: the explanation of {policy.name} does not say what {each!r} does"
                for each in states if sum(paragraph.startswith(each) for paragraph in paragraphs) != 1]
    if not any(paragraph.startswith(preference) for paragraph in paragraphs):
        problems.append(f"{name}: the explanation of {policy.name} does not say that it is a preference")
    place = re.escape(f"{policy.hive}\\{policy.key}") + r"(?![\w\\])"
    if not re.search(place, text) or not all(value in text for value in policy.values):
        problems.append(f"{name}: the explanation of {policy.name} does not name its registry value")
    if any(line != line.strip() for line in text.splitlines()) or "\n\n\n" in text:
        problems.append(f"{name}: the explanation of {policy.name} has blanks at a line's end, or too many lines")
    return problems


def template_problems(texts):
    """The rules of the format."""
    try:
        roots = parse(texts)
    except xml.etree.ElementTree.ParseError as error:
        return [f"a file is not well-formed: {error}"]
    template = roots[ADMX]
    problems = grammar_problems(ADMX, template, ADMX_GRAMMAR)
    for name in LANGUAGES:
        problems += grammar_problems(name, roots[name], ADML_GRAMMAR)
    if problems:
        return problems
    revision = float(find_all(template, "resources")[0].get("minRequiredRevision"))
    policies = [Policy(each) for each in find_all(template, "policies", "policy")]
    names = [each.name for each in policies]
    problems += [f"{ADMX}: the policy {each} is there twice" for each in repeated(names)]
    places = [(each.hive, each.key, value) for each in policies for value in each.values]
    problems += [f"{ADMX}: two policies write {each}" for each in repeated(places)]
    for kind, path in (("parentCategory", ("categories", "category")), ("supportedOn", ("supportedOn", "definitions", "definition"))):
        there = {each.get("name") for each in find_all(template, *path)}
        used = {find_all(each.element, kind)[0].get("ref") for each in policies}
        problems += [f"{ADMX}: {kind} {each} is used or defined in vain" for each in sorted(there ^ used)]
    for policy in policies:
        if not policy.values:
            problems.append(f"{ADMX}: {policy.name} writes nothing")
        for part in policy.parts:
            if part.get("required") != "true":
                problems.append(f"{ADMX}: {policy.name} can be enabled without its {part.get('id')}")
    for name in LANGUAGES:
        if float(roots[name].get("revision")) < revision:
            problems.append(f"{name}: its revision is older than the template wants")
        problems += id_problems(name, template, roots[name])
        for policy in policies:
            problems += presentation_problems(name, policy, roots[name])
            problems += explanation_problems(name, policy, roots[name])
    return problems


# What a policy does, and with which others it shows: the value's name, the other values that must be
# written with it, and the outcome of the job.
JOB_NUMBER = "0301234567"
AS_IT_IS = f"SMTP:{JOB_NUMBER}"
EFFECTS = {
    "LogLevel": ((), {"log": True, "arrived": AS_IT_IS}),
    "SkipExtendedMapi": ((), {"log": False, "arrived": None}),
    "TolvanAddinPort": ((), {"log": False, "arrived": "add-in"}),
    "AddrExtFaxEnabled": ((), {"log": False, "arrived": f":{JOB_NUMBER}"}),
    "AddrExtFaxPrefix": (("AddrExtFaxEnabled",), {"log": False, "arrived": f":FAX={JOB_NUMBER}"}),
    "AddrExtFaxPostfix": (("AddrExtFaxEnabled",), {"log": False, "arrived": f"SMTP:{JOB_NUMBER}@fax.example.com"}),
}
NOTHING_SET = {"log": False, "arrived": AS_IT_IS}
# A setting that has the wrong type, or a form that the tool does not take.
SETTING_CODES = {"D02", "D08", "D09"}
NOT_READ = "the tool does not read it in this hive"


def reg_file(values):
    """Values, by hive, key and name, as a file of the registry editor."""
    text = "Windows Registry Editor Version 5.00\n"
    for (hive, key, name), data in values.items():
        if isinstance(data, int):
            shown = f"dword:{data:08x}"
        else:
            shown = '"' + data.replace("\\", "\\\\").replace('"', '\\"') + '"'
        text += f'\n[{hive}\\{key}]\n"{name}"={shown}\n'
    return text


class Machine:
    """A machine of the host build: its registry, its mail client and its add-in."""

    def __init__(self, build, folder):
        self.build, self.folder = build, folder
        self.log = folder / "data" / "VORNA" / "Client" / "Log" / "zentpost.log"
        self.mail = folder / "mail"
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(20)
        self.port = self.listener.getsockname()[1]
        self.environment = {**os.environ, "ZENTPOST_REGISTRY": str(folder / "registry.reg"),
                            "ZENTPOST_SYSTEM_DIRECTORY": str(folder / "none"), "XDG_DATA_HOME": str(folder / "data"),
                            "TMPDIR": str(folder)}

    def run(self, program, *arguments):
        return subprocess.run([self.build / program, *arguments], cwd=self.folder, env=self.environment,
                              capture_output=True, timeout=60, check=False)

    def accept(self, received):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                with connection:
                    received.append(b"".join(iter(lambda: connection.recv(65536), b"")))

    def outcome(self, values):
        """What becomes of a job with these values in the registry."""
        for old in (self.mail, self.log.parent):
            shutil.rmtree(old, ignore_errors=True)
        self.log.parent.mkdir(parents=True)
        (self.folder / "registry.reg").write_text(reg_file(values), encoding="utf-8")
        if self.run("tools/sandbox_mapi/sandbox_mapi", "register", "--folder", str(self.mail)).returncode:
            sys.exit("sandbox_mapi cannot be registered")
        (self.folder / "document.pdf").write_bytes(b"%PDF-1.4\n")
        received = []
        self.listener.settimeout(20)
        thread = threading.Thread(target=self.accept, args=(received,))
        thread.start()
        delivered = self.run("zentpost", "document.pdf", JOB_NUMBER).returncode == 0
        self.listener.settimeout(0.05)
        with contextlib.suppress(OSError):  # wakes the thread
            socket.create_connection(("127.0.0.1", self.port)).close()
        thread.join()
        arrived = "add-in" if any(received) else None
        for message in self.mail.glob("Store/Sent Items/*.eml"):
            arrived = re.search(rb"X-Sandbox-Recipient: (.*?)\r?\n", message.read_bytes())[1].decode()
        return {"log": self.log.exists(), "arrived": arrived if delivered else "failed"}

    def examine(self, values):
        """What the doctor says of these values."""
        (self.folder / "registry.reg").write_text(reg_file(values), encoding="utf-8")
        return json.loads(self.run("zentpost_doctor", "--json").stdout)


@contextlib.contextmanager
def machine(build):
    with tempfile.TemporaryDirectory() as folder:
        made = Machine(build, pathlib.Path(folder))
        with made.listener:
            yield made


def name_problems(policies, settings, doctor):
    """The policies are there once for each setting, hive and bitness in which the tool reads it."""
    everywhere = {("HKEY_LOCAL_MACHINE", key, name): 1 for key, names in settings.items() for name in names}
    of_machine = {each["name"] for each in doctor(everywhere)["settings"] if each["effect"] != NOT_READ}
    wanted = {("HKEY_CURRENT_USER", key, name) for key, names in settings.items() for name in names}
    for key, names in settings.items():
        for view in (key, key.replace("Software\\", REDIRECTED, 1)):
            wanted |= {("HKEY_LOCAL_MACHINE", view, name) for name in names if name in of_machine}
    there = {(each.hive, each.key, value) for each in policies for value in each.values}
    return ([f"{ADMX}: no policy writes {each}" for each in sorted(wanted - there)] +
            [f"{ADMX}: the tool does not read {each}" for each in sorted(there - wanted)])


def effect_problems(policies, host):
    """The tool heeds what each policy writes, and nothing is left when it is disabled."""
    inputs = {"TolvanAddinPort": str(host.port), "AddrExtFaxPrefix": "FAX=", "AddrExtFaxPostfix": "@fax.example.com"}
    problems = []
    for policy in policies:
        for value in policy.values:
            others, expected = EFFECTS[value]
            values = {}
            for each in policies:
                if each is policy or (set(each.values) & set(others) and each.hive == policy.hive):
                    for name, data in each.written(True, inputs).items():
                        values[each.hive, each.key_of_program(), name] = data
            seen = host.outcome(values)
            if seen != expected:
                problems.append(f"{ADMX}: {policy.name} enabled: expected {expected}, the tool gives {seen}")
            report = host.examine(values)
            problems += [f"{ADMX}: {policy.name} enabled: the doctor finds {each['code']}, {each['seen']}"
                         for each in report["findings"] if each["code"] in SETTING_CODES]
            seen = {(each["hive"], each["name"]) for each in report["settings"] if each["effect"] != NOT_READ}
            if (HIVES[policy.element.get("class")][1], value) not in seen:
                problems.append(f"{ADMX}: {policy.name} enabled: the tool does not read it")
            if any(data is not None for data in policy.written(False, inputs).values()):
                problems.append(f"{ADMX}: {policy.name} disabled leaves a value behind")
    return problems


def check(texts, header, host):
    problems = template_problems(texts)
    if problems:
        return problems
    policies = [Policy(each) for each in find_all(parse(texts)[ADMX], "policies", "policy")]
    return name_problems(policies, setting_names(header), host.examine) or effect_problems(policies, host)


# (file, what stands there, what to write in its place, a part of the complaint). Of several places the
# first is changed.
EN, DE = LANGUAGES
MUTATIONS = [
    (ADMX, "</policies>", "", "not well-formed"),
    (ADMX, "/07/PolicyDefinitions", "/07/Definitions", "there is no element"),
    (ADMX, 'storeAsText="true"', 'storeAstext="true"', "storeAstext"),
    (ADMX, '<disabledValue><delete /></disabledValue>', '<disabledValue><erase /></disabledValue>', "there is no element"),
    (ADMX, 'valueName="LogLevel"', 'valueName="Loglevel"', "does not name its registry value"),
    (ADMX, 'key="Software\\Sollvex\\FaxClient"', 'key="Software\\Sollvex\\Faxclient"', "does not name"),
    (ADMX, 'minRequiredRevision="1.0"', 'minRequiredRevision="1.1"', "older than the template wants"),
    (ADMX, 'name="LogLevel_Machine32"', 'name="LogLevel_Machine64"', "is there twice"),
    (ADMX, 'key="Software\\WOW6432Node\\Sollvex\\FaxClient"', 'key="Software\\Sollvex\\FaxClient"', "two policies write"),
    (ADMX, 'ref="Zentpost"', 'ref="zentpost"', "parentCategory"),
    (ADMX, '<supportedOn ref="SUPPORTED_Zentpost_1_0" />', '<supportedOn ref="Windows" />', "supportedOn Windows"),
    (ADMX, 'id="Port"', 'id="port"', "its presentation shows"),
    (ADMX, 'presentation="$(presentation.TolvanAddinPort_User)"', "", "nothing uses the presentation"),
    (ADMX, 'maxLength="1023" required="true"', 'maxLength="1023"', "can be enabled without"),
    (EN, '<string id="LogLevel_User">Write the log file</string>', "", "the string LogLevel_User is missing"),
    (DE, '<string id="LogLevel_User">Protokolldatei schreiben</string>', "", "the string LogLevel_User is missing"),
    (DE, '<string id="Zentpost">', '<string id="Spare">Rest</string>\n<string id="Zentpost">', "nothing uses the string"),
    (EN, '<string id="Zentpost">Zentpost<', '<string id="Zentpost"><', "is empty"),
    (EN, '<string id="Zentpost">', '<string id="Zentpost">a</string><string id="Zentpost">', "is there twice"),
    (EN, 'refId="Port" spin', 'refId="Port" spinning', "may not have the attribute spinning"),
    (DE, 'refId="Prefix"', 'refId="Suffix"', "its presentation shows"),
    (DE, "Deaktiviert: Der Wert", "Aus: Der Wert", "does not say what 'Deaktiviert:' does"),
    (EN, "This is a preference and", "This is a setting and", "does not say that it is a preference"),
    (EN, "HKEY_LOCAL_MACHINE\\Software\\WOW6432Node", "HKEY_LOCAL_MACHINE\\Software\\Wow64", "LogLevel_Machine32 does not name"),
    # What only the tool can tell.
    (ADMX, '<decimal value="1" />', '<string>1</string>', "D08"),
    (ADMX, '<decimal value="1" />', '<decimal value="0" />', "LogLevel_User enabled: expected"),
    (ADMX, '<disabledValue><delete /></disabledValue>', '<disabledValue><decimal value="0" /></disabledValue>', "leaves a value"),
    (ADMX, 'storeAsText="true"', 'storeAsText="false"', "D02"),
    (ADMX, '<string>1</string>', '<string>true</string>', "D09"),
    (ADMX, '<string>1</string>', '<decimal value="1" />', "D09"),
]
# A policy that is spoilt in all files alike, or is missing from them: (pattern, in its place, complaint).
EVERYWHERE = [
    ("TolvanAddinPort(?!_User)", "TolvanAddinPorts", "no policy writes"),
    ("Sollvex.OutlookAddin", "Sollvex\\\\OutlookAddIns", "no policy writes"),
]


def self_test(texts, header, host):
    problems = []

    def demand(changed, new_header, complaint, what):
        found = check(changed, new_header, host)
        if not any(complaint in each for each in found):
            problems.append(f"{what}: expected a complaint with {complaint!r}, found {found}")

    for name, old, new, complaint in MUTATIONS:
        if old not in texts[name]:
            problems.append(f"{name} has no {old}")
            continue
        demand({**texts, name: texts[name].replace(old, new, 1)}, header, complaint, f"{name}, {new or 'without ' + old}")
    for pattern, new, complaint in EVERYWHERE:
        demand({name: re.sub(pattern, new, text) for name, text in texts.items()}, header, complaint, new)
    # The settings that the tool reads under HKEY_CURRENT_USER alone do nothing for the machine.
    moved = texts[ADMX].replace('name="TolvanAddinPort_User" class="User"', 'name="TolvanAddinPort_User" class="Machine"')
    other = {name: text.replace("HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin", "HKEY_LOCAL_MACHINE\\Software\\Sollvex\\OutlookAddin", 1)
             for name, text in texts.items()}
    demand({**other, ADMX: moved}, header, "the tool does not read", "the port of the machine")
    demand(texts, header.replace('"SkipExtendedMapi"', '"SkipMapi"'), "no policy writes", "another name in the header")
    demand(texts, header.replace('u"LogLevel";', 'u"LogLevel";\ninline constexpr char16_t kMore[] = u"More";'),
           "no policy writes", "another value in the header")
    return problems


def main():
    arguments = sys.argv[1:]
    is_self_test = arguments[:1] == ["--self-test"]
    if is_self_test:
        arguments.pop(0)
    if len(arguments) != 1:
        sys.exit(__doc__)
    texts = {name: (FOLDER / name).read_text(encoding="utf-8") for name in (ADMX, *LANGUAGES)}
    header = HEADER.read_text(encoding="utf-8")
    with machine(pathlib.Path(arguments[0]).resolve()) as host:
        if host.outcome({}) != NOTHING_SET:
            sys.exit("a job does not arrive when no setting is made")
        problems = (self_test if is_self_test else check)(texts, header, host)
    print("\n".join(problems) or f"{len(MUTATIONS) + len(EVERYWHERE) + 3} changes were found" * is_self_test
          or "the policy templates are right")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
