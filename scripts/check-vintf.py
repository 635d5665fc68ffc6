#!/usr/bin/env python3
"""Checks that the HAL's VINTF declarations agree with each other:
    scripts/check-vintf.py [--root DIR] [--schemas LIBVINTF_DIR]

Reads, under DIR (default: this tree), the device manifest fragment and the framework
compatibility-matrix fragment of service/, the service's init script (service/*.rc), the package
versions under interface/, interface/current.txt and sepolicy/hwservice_contexts, and requires:
  - the manifest serves the package of interface/ over hwbinder, at its newest version, with
    interfaces that the version defines;
  - the matrix lists the package as optional, with version ranges that cover every version under
    interface/ (and so the manifest's), and the manifest's interfaces and instances;
  - every `interface` line of the init script is served by the manifest (a 1.y entry serves 1.x for
    x <= y) and every version under interface/ has one, so hwservicemanager starts the service for
    clients of any version;
  - current.txt holds a hash for each served interface at every version, and names no other version;
  - hwservice_contexts labels each served interface.
Each disagreement is reported with the file and entry. With --schemas (a platform tree's
system/libvintf), both fragments are also validated against libvintf's XML schemas with xmllint.
"""
import argparse
import glob
import os
import re
import subprocess
import sys
import xml.etree.ElementTree as ET

MANIFEST = "service/manifest_activity_recognition.xml"
MATRIX = "service/compatibility_matrix_activity_recognition.xml"
CURRENT = "interface/current.txt"
HWSERVICE_CONTEXTS = "sepolicy/hwservice_contexts"

errors = []


def fail(path, entry, problem):
    errors.append("check-vintf: %s: %s: %s" % (path, entry, problem))


def version_key(text):
    major, minor = text.split(".")
    return int(major), int(minor)


# ---- Sources of truth: the package versions under interface/.
def package_versions(root):
    """{version: set of interface names} and the package name, from interface/*/*.hal."""
    versions, package = {}, None
    for hal in sorted(glob.glob(os.path.join(root, "interface", "*", "*.hal"))):
        version = os.path.basename(os.path.dirname(hal))
        if not re.fullmatch(r"\d+\.\d+", version):
            continue
        match = re.search(r"^package\s+([\w.]+)@([\d.]+)\s*;", open(hal).read(), re.M)
        if not match or match.group(2) != version:
            fail(os.path.relpath(hal, root), "package", "does not declare @%s" % version)
            continue
        package = package or match.group(1)
        if match.group(1) != package:
            fail(os.path.relpath(hal, root), "package", "%s is not %s" % (match.group(1), package))
        name = os.path.splitext(os.path.basename(hal))[0]
        versions.setdefault(version, set())
        if name.startswith("I"):
            versions[version].add(name)
    return package, versions


def hals_of(root, path, expected_type):
    """The <hal> elements of a VINTF file whose root has the given type."""
    try:
        top = ET.parse(os.path.join(root, path)).getroot()
    except (OSError, ET.ParseError) as error:
        fail(path, "file", "cannot be read: %s" % error)
        return []
    if top.get("type") != expected_type:
        fail(path, top.tag, 'type is "%s", not "%s"' % (top.get("type"), expected_type))
    return top.findall("hal")


def interfaces_of(hal):
    """{interface name: set of instances} of a <hal> element."""
    return {
        i.findtext("name", "").strip(): {n.text.strip() for n in i.findall("instance")}
        for i in hal.findall("interface")
    }


# ---- The checks, one file each.
def check_manifest(root, package, versions):
    """The manifest's served versions and {interface: instances}."""
    newest = max(versions, key=version_key)
    served, interfaces = [], {}
    for hal in hals_of(root, MANIFEST, "device"):
        name = hal.findtext("name", "").strip()
        if name != package:
            fail(MANIFEST, "hal " + name, "is not the package of interface/ (%s)" % package)
            continue
        if hal.findtext("transport", "").strip() != "hwbinder":
            fail(MANIFEST, "hal " + name, "transport is not hwbinder")
        for version in (v.text.strip() for v in hal.findall("version")):
            if version not in versions:
                fail(MANIFEST, "version " + version, "is not a package version under interface/")
                continue
            if version != newest:
                fail(MANIFEST, "version " + version, "is not the newest package version " + newest)
            served.append(version)
            for interface, instances in interfaces_of(hal).items():
                if interface not in versions[version]:
                    fail(MANIFEST, interface, "is not an interface of %s@%s" % (package, version))
                interfaces.setdefault(interface, set()).update(instances)
    if not served:
        fail(MANIFEST, "hal " + package, "is not served")
    return served, interfaces


def check_matrix(root, package, versions, interfaces):
    hals = [h for h in hals_of(root, MATRIX, "framework") if h.findtext("name", "").strip() == package]
    if not hals:
        fail(MATRIX, "hal " + package, "is not listed")
        return
    for hal in hals:
        if hal.get("optional") != "true":
            fail(MATRIX, "hal " + package, 'is not optional="true"')
        ranges = []
        for text in (v.text.strip() for v in hal.findall("version")):
            match = re.fullmatch(r"(\d+)\.(\d+)(?:-(\d+))?", text)
            if not match:
                fail(MATRIX, "version " + text, "is not MAJOR.MINOR or MAJOR.MINOR-MINOR")
                continue
            low = int(match.group(2))
            ranges.append((int(match.group(1)), low, int(match.group(3) or low), text))
        for version in sorted(versions, key=version_key):
            major, minor = version_key(version)
            if not any(m == major and lo <= minor <= hi for m, lo, hi, _ in ranges):
                fail(MATRIX, "version " + (", ".join(r[3] for r in ranges) or "none"),
                     "does not cover %s@%s" % (package, version))
        listed = interfaces_of(hal)
        if listed != interfaces:
            fail(MATRIX, "interface", "lists %s, the manifest serves %s"
                 % (sorted((k, sorted(v)) for k, v in listed.items()),
                    sorted((k, sorted(v)) for k, v in interfaces.items())))


def check_init_script(root, package, versions, served, interfaces):
    scripts = sorted(glob.glob(os.path.join(root, "service", "*.rc")))
    if not scripts:
        fail("service/", "*.rc", "no init script")
    lines = set()
    for script in scripts:
        path = os.path.relpath(script, root)
        for line in open(script):
            words = line.split()
            if len(words) != 3 or words[0] != "interface":
                continue
            match = re.fullmatch(r"([\w.]+)@(\d+)\.(\d+)::(\w+)", words[1])
            if not match or match.group(1) != package:
                fail(path, line.strip(), "is not an interface of " + package)
                continue
            major, minor, interface = int(match.group(2)), int(match.group(3)), match.group(4)
            lines.add(("%d.%d" % (major, minor), interface, words[2]))
            if not any(version_key(v)[0] == major and version_key(v)[1] >= minor for v in served):
                fail(path, line.strip(), "no version of the manifest serves it")
            if words[2] not in interfaces.get(interface, set()):
                fail(path, line.strip(), "the manifest serves no %s/%s" % (interface, words[2]))
    for version, defined in versions.items():
        for interface, instances in interfaces.items():
            for instance in sorted(instances):
                if interface in defined and (version, interface, instance) not in lines:
                    fail("service/*.rc", "%s@%s::%s %s" % (package, version, interface, instance),
                         "has no interface line")


def check_current(root, package, versions, interfaces):
    hashed = set()
    try:
        for line in open(os.path.join(root, CURRENT)):
            words = line.split()
            if len(words) == 2 and not words[0].startswith("#"):
                hashed.add(words[1])
    except OSError as error:
        fail(CURRENT, "file", "cannot be read: %s" % error)
        return
    for name in sorted(hashed):
        match = re.fullmatch(r"([\w.]+)@([\d.]+)::\w+", name)
        if not match or match.group(1) != package or match.group(2) not in versions:
            fail(CURRENT, name, "is not a type of a package version under interface/")
    for version in versions:
        for interface in interfaces:
            name = "%s@%s::%s" % (package, version, interface)
            if interface in versions[version] and name not in hashed:
                fail(CURRENT, name, "has no hash")


def check_hwservice_contexts(root, package, interfaces):
    try:
        labelled = {line.split()[0] for line in open(os.path.join(root, HWSERVICE_CONTEXTS))
                    if line.split() and not line.startswith("#")}
    except OSError as error:
        fail(HWSERVICE_CONTEXTS, "file", "cannot be read: %s" % error)
        return
    for interface in interfaces:
        if "%s::%s" % (package, interface) not in labelled:
            fail(HWSERVICE_CONTEXTS, "%s::%s" % (package, interface), "has no label")


def check_schemas(root, libvintf):
    for path, schema in ((MANIFEST, "xsd/halManifest/hal_manifest.xsd"),
                         (MATRIX, "xsd/compatibilityMatrix/compatibility_matrix.xsd")):
        result = subprocess.run(["xmllint", "--noout", "--schema", os.path.join(libvintf, schema),
                                 os.path.join(root, path)], capture_output=True, text=True)
        if result.returncode != 0:
            fail(path, "schema " + schema, result.stderr.strip())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", default=os.path.join(os.path.dirname(__file__), ".."))
    parser.add_argument("--schemas", metavar="LIBVINTF_DIR")
    args = parser.parse_args()
    root = os.path.abspath(args.root)

    package, versions = package_versions(root)
    if not versions:
        fail("interface/", "*/*.hal", "no package version")
    else:
        served, interfaces = check_manifest(root, package, versions)
        check_matrix(root, package, versions, interfaces)
        check_init_script(root, package, versions, served, interfaces)
        check_current(root, package, versions, interfaces)
        check_hwservice_contexts(root, package, interfaces)
    if args.schemas:
        check_schemas(root, args.schemas)
    for error in errors:
        print(error, file=sys.stderr)
    if errors:
        return 1
    print("check-vintf: ok" + (" (schemas of %s)" % args.schemas if args.schemas else ""))
    return 0


if __name__ == "__main__":
    sys.exit(main())
