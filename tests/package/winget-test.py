#!/usr/bin/env python3
"""make package's winget manifest, for an x64 build packed here: its three
files parse as YAML, name one package and the project's version, describe the
NSIS setup as winget has to run it, and give each setup by a URL of the
version and its SHA-256; a download URL given in QUILLON_DOWNLOAD_URL is the
one written, and one that cannot give each setup its own URL is refused
before anything is packed.
  winget-test.py BUILD_DIR   (an x64 build)"""

import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path
from urllib.parse import urlparse

import yaml

ROOT = Path(__file__).resolve().parents[2]
PACKAGE = ROOT / "scripts" / "package.sh"
IDENTIFIER = "Marrowin.Quillon"
FILES = {
    "version": f"{IDENTIFIER}.yaml",
    "installer": f"{IDENTIFIER}.installer.yaml",
    "defaultLocale": f"{IDENTIFIER}.locale.en-US.yaml",
}
SCHEMA_LINE = re.compile(r"^# yaml-language-server: \$schema=https://aka\.ms/winget-manifest\.(\w+)\.([0-9.]+)\.schema\.json$")
SETUP_NAME = re.compile(r"^Quillon-(.+)-(x64|arm64)-setup\.exe$")

failures = []


def fail(message):
    print(f"FAILED: {message}")
    failures.append(message)


def version_tuple(text):
    return tuple(int(part) for part in str(text).split("."))


def project_version():
    match = re.search(r"^project\(Quillon VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text(), re.M)
    if not match:
        sys.exit("FAILED: no project(Quillon VERSION ...) in CMakeLists.txt")
    return match.group(1)


def package(out, build, env):
    """Runs package.sh for the one x64 build; returns its exit code and output."""
    run = subprocess.run([str(PACKAGE), str(out), f"{build}:x64"], env=env, cwd=ROOT,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=240)
    return run.returncode, run.stdout


def packaging_env(**extra):
    # Unsigned: the signing has its own test.
    env = {k: v for k, v in os.environ.items()
           if k not in ("QUILLON_SIGN_PFX", "QUILLON_SIGN_PASSWORD_FILE", "QUILLON_DOWNLOAD_URL")}
    env.update(extra)
    return env


def load_manifests(winget):
    """The three manifests by type, each checked against its schema line."""
    present = sorted(p.name for p in winget.iterdir()) if winget.is_dir() else []
    if present != sorted(FILES.values()):
        fail(f"winget/ holds {present}, not {sorted(FILES.values())}")
    manifests = {}
    for kind, name in FILES.items():
        path = winget / name
        if not path.is_file():
            continue
        text = path.read_text(encoding="utf-8")
        try:
            manifest = yaml.safe_load(text)
        except yaml.YAMLError as error:
            fail(f"{name} is not YAML: {error}")
            continue
        if not isinstance(manifest, dict):
            fail(f"{name} is not a mapping")
            continue
        manifests[kind] = manifest
        schema = SCHEMA_LINE.match(text.splitlines()[0])
        if not schema:
            fail(f"{name} does not start with its schema line")
        elif (schema.group(1), schema.group(2)) != (kind, str(manifest.get("ManifestVersion"))):
            fail(f"{name}'s schema line names {schema.group(1)} {schema.group(2)}")
        if manifest.get("ManifestType") != kind:
            fail(f"{name}: ManifestType is {manifest.get('ManifestType')!r}, not {kind}")
        try:
            if version_tuple(manifest.get("ManifestVersion")) < (1, 6, 0):
                fail(f"{name}: ManifestVersion {manifest.get('ManifestVersion')} is older than 1.6.0")
        except ValueError:
            fail(f"{name}: ManifestVersion {manifest.get('ManifestVersion')!r} is not a version")
    return manifests


def check_manifests(out, version):
    """Everything a manifest written for the setups in OUT has to say; returns its installers."""
    manifests = load_manifests(out / "winget")
    for kind, manifest in manifests.items():
        if manifest.get("PackageIdentifier") != IDENTIFIER:
            fail(f"{FILES[kind]}: PackageIdentifier is {manifest.get('PackageIdentifier')!r}")
        # A string, as the schema has it: 1.10 written bare would read as the number 1.1.
        if manifest.get("PackageVersion") != version:
            fail(f"{FILES[kind]}: PackageVersion is {manifest.get('PackageVersion')!r}, not {version!r}")

    # A manifest that did not load has failed already; its contents are not checked.
    if "version" in manifests and manifests["version"].get("DefaultLocale") != "en-US":
        fail(f"DefaultLocale is {manifests['version'].get('DefaultLocale')!r}, not en-US")
    if "defaultLocale" in manifests:
        locale = manifests["defaultLocale"]
        if locale.get("PackageLocale") != "en-US":
            fail(f"PackageLocale is {locale.get('PackageLocale')!r}, not en-US")
        for key in ("License", "ShortDescription"):
            if not isinstance(locale.get(key), str) or not locale[key].strip():
                fail(f"the locale file has no {key}")
        if (locale.get("Publisher"), locale.get("PackageName")) != ("Marrowin", "Quillon"):
            fail(f"the locale file names {locale.get('PackageName')!r} by {locale.get('Publisher')!r}")

    if "installer" not in manifests:
        return []
    installer = manifests["installer"]
    expected = {"InstallerType": "nullsoft", "Scope": "machine", "ElevationRequirement": "elevatesSelf"}
    for key, value in expected.items():
        if installer.get(key) != value:
            fail(f"{key} is {installer.get(key)!r}, not {value}")
    switches = installer.get("InstallerSwitches") or {}
    for key in ("Silent", "SilentWithProgress"):
        if switches.get(key) != "/S":
            fail(f"InstallerSwitches {key} is {switches.get(key)!r}, not /S")
    # What winget finds in Programs and Features after the setup ran.
    entries = installer.get("AppsAndFeaturesEntries") or []
    if not any(e.get("DisplayName") == "Quillon" and e.get("Publisher") == "Marrowin"
               and e.get("DisplayVersion") == version for e in entries):
        fail(f"no AppsAndFeaturesEntries entry Quillon by Marrowin at {version}: {entries}")

    installers = installer.get("Installers") or []
    setups = sorted(p.name for p in out.glob("Quillon-*-setup.exe"))
    named = []
    for entry in installers:
        url = str(entry.get("InstallerUrl", ""))
        name = urlparse(url).path.rsplit("/", 1)[-1]
        named.append(name)
        if not url.startswith("https://"):
            fail(f"InstallerUrl {url!r} is not https")
        # The setup's name has the version anyway; the folder it is published in has to as well.
        if version not in url.rsplit("/", 1)[0]:
            fail(f"InstallerUrl {url!r} does not contain the version {version} before the file name")
        setup = out / name
        if not name or not setup.is_file():
            fail(f"InstallerUrl {url!r} names no setup that was packed")
            continue
        digest = hashlib.sha256(setup.read_bytes()).hexdigest().upper()
        if entry.get("InstallerSha256") != digest:
            fail(f"{name}: InstallerSha256 {entry.get('InstallerSha256')!r}, the file's is {digest}")
        match = SETUP_NAME.match(name)
        if not match:
            fail(f"{name} is not named as a setup")
        else:
            if match.group(1) != version:
                fail(f"{name} is not the setup of {version}")
            if entry.get("Architecture") != match.group(2):
                fail(f"{name}: Architecture is {entry.get('Architecture')!r}, not {match.group(2)}")
    if sorted(named) != setups:
        fail(f"the installers name {sorted(named)}, the setups packed are {setups}")
    return installers


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: winget-test.py BUILD_DIR")
    build = Path(sys.argv[1]).resolve()
    version = project_version()
    work = Path(tempfile.mkdtemp())
    try:
        # The default download URL.
        code, log = package(work / "default", build, packaging_env())
        if code:
            print(log)
            sys.exit(f"FAILED: package.sh exited with {code}")
        if f"package: winget manifest in {work / 'default' / 'winget'}" not in log:
            fail("packaging did not say where the manifest is")
        installers = check_manifests(work / "default", version)
        for entry in installers:
            print(f"checked: {entry.get('Architecture')} {entry.get('InstallerUrl')} {entry.get('InstallerSha256')}")

        # A URL of the caller's, with {version} twice.
        template = "https://files.test.invalid/{version}/quillon/{file}?v={version}"
        code, log = package(work / "given", build, packaging_env(QUILLON_DOWNLOAD_URL=template))
        if code:
            print(log)
            sys.exit(f"FAILED: package.sh with QUILLON_DOWNLOAD_URL exited with {code}")
        installers = check_manifests(work / "given", version)
        urls = [entry.get("InstallerUrl") for entry in installers]
        wanted = [template.replace("{version}", version).replace("{file}", f"Quillon-{version}-x64-setup.exe")]
        if urls != wanted:
            fail(f"with QUILLON_DOWNLOAD_URL={template} the URLs are {urls}, not {wanted}")

        # Every setup needs its own URL, so a template without {file} is refused, before any packing.
        code, log = package(work / "refused", build,
                            packaging_env(QUILLON_DOWNLOAD_URL="https://files.test.invalid/quillon-setup.exe"))
        if code == 0:
            fail("a QUILLON_DOWNLOAD_URL without {file} was taken")
        if "QUILLON_DOWNLOAD_URL must be" not in log:
            fail(f"no line says what is wrong with the download URL: {log.strip()!r}")
        if list((work / "refused").glob("Quillon-*-setup.exe")) or (work / "refused" / "winget").exists():
            fail("a setup or manifest was made with a download URL that was refused")
    finally:
        shutil.rmtree(work, ignore_errors=True)

    if failures:
        print(f"{len(failures)} check(s) failed")
        sys.exit(1)
    print("winget: every check passed")


if __name__ == "__main__":
    main()
