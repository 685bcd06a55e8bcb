"""Writes jurn-VERSION.spdx.json beside the files of a release: every file with its checksum, the
packages that it needs at run time, and those whose code or recordings it contains, with their versions
here.

    sbom.py FOLDER VERSION
"""

import hashlib
import json
import os
import re
import subprocess
import sys
from datetime import datetime, timezone
from fnmatch import fnmatch
from functools import lru_cache
from pathlib import Path
from urllib.parse import quote

JSON, WASM = "nlohmann-json3-dev", ("wasi-libc", "libc++-*-dev-wasm32", "libclang-rt-*-dev-wasm32")
# Debian packages whose code is compiled into the files of a name, or which lie in them.
CONTAINED = {
    r"jurn-tools_": ("STATIC_LINK", JSON, "libcli11-dev"),
    r"(gstreamer1.0-jurn|jurn-lv2)_|jurn-filter-.*\.jar$": ("STATIC_LINK", JSON),
    r"python3-jurn_|.*\.whl$": ("STATIC_LINK", JSON, "pybind11-dev"),
    r"jurn-filter-.*\.tgz$|jurn-page-": ("STATIC_LINK", JSON, *WASM),
    r"jurn-page-": ("CONTAINS", "alsa-utils", "jconvolver-config-files", "libmysofa1", "sonic-pi-samples"),
    r"jurn-docs-": ("CONTAINS", "doxygen", "doxygen-awesome-css"),
}


@lru_cache(maxsize=None)
def output(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def installed(pattern: str) -> "list[tuple[str, str]]":
    """Names and versions of the Debian packages of a name that are installed."""
    lines = output("dpkg-query", "-W", "-f", "${db:Status-Status} ${Package} ${Version}\n")
    found = [line.split()[1:] for line in lines.splitlines() if line.startswith("installed ")]
    return [(name, version) for name, version in found if fnmatch(name, pattern)]


def needed(folder: Path, name: str) -> "list[str]":
    """The Debian packages that a file depends on; a wheel as the package of the same module."""
    deb = folder / name if name.endswith(".deb") else None
    if name.endswith(".whl"):
        deb = next(folder.glob("python3-jurn_*.deb"))
    if not deb:
        return []
    depends = output("dpkg-deb", "-f", str(deb), "Depends").replace("|", ",")
    return sorted({entry.split()[0].split(":")[0] for entry in depends.split(",") if entry.strip()})


def main(folder: Path, version: str) -> None:
    epoch = int(os.environ["SOURCE_DATE_EPOCH"])
    packages, relations, everything = {}, [], hashlib.sha256()

    def add(name: str, **more: object) -> str:
        identity = "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)
        packages[identity] = {"SPDXID": identity, "name": name, "downloadLocation": "NOASSERTION",
                              "filesAnalyzed": False, "licenseConcluded": "NOASSERTION",
                              "licenseDeclared": "NOASSERTION", "copyrightText": "NOASSERTION", **more}
        return identity

    def relate(one: str, relation: str, other: str) -> None:
        relations.append({"spdxElementId": one, "relationshipType": relation,
                          "relatedSpdxElement": other})

    for path in sorted(folder.iterdir()):
        digest = hashlib.sha256(path.read_bytes()).hexdigest()
        everything.update(digest.encode())
        own = add(path.name, versionInfo=version, packageFileName=path.name, licenseDeclared="MIT",
                  licenseConcluded="MIT", copyrightText="Copyright (c) 2026 the JURN authors",
                  checksums=[{"algorithm": "SHA256", "checksumValue": digest}])
        relate("SPDXRef-DOCUMENT", "DESCRIBES", own)
        contained = [rest for names, rest in CONTAINED.items() if re.match(names, path.name)]
        for relation, *patterns in (("DEPENDS_ON", *needed(folder, path.name)), *contained):
            for package, its_version in [found for one in patterns for found in installed(one)]:
                relate(own, relation, add(package, versionInfo=its_version, externalRefs=[{
                    "referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                    "referenceLocator": f"pkg:deb/debian/{quote(package)}@{quote(its_version)}"}]))
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"jurn-{version}", "documentNamespace": f"urn:jurn:sbom:{everything.hexdigest()}",
        "creationInfo": {
            "created": datetime.fromtimestamp(epoch, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "creators": ["Organization: the JURN authors", "Tool: sbom.py"]},
        "packages": list(packages.values()), "relationships": relations}
    (folder / f"jurn-{version}.spdx.json").write_text(json.dumps(document, indent=1) + "\n")


if __name__ == "__main__":
    main(Path(sys.argv[1]), sys.argv[2])
