"""Checks a bill of materials (SPDX 2.3): complete records, relations among them, and a package for each library that is loaded.

The first argument is the bill; standard input has the dynamic sections of the programs.
"""

import json
import re
import sys

OF_THE_SYSTEM = {"c", "m", "gcc_s", "ld-linux-x86", "ld-linux-aarch64"}

with open(sys.argv[1], encoding="utf-8") as file:
    bill = json.load(file)
assert bill["spdxVersion"] == "SPDX-2.3" and re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", bill["creationInfo"]["created"])

ids = {package["SPDXID"] for package in bill["packages"]}
assert len(ids) == len(bill["packages"])
for package in bill["packages"]:
    assert package["licenseDeclared"] != "NOASSERTION", package["name"]
    assert re.fullmatch(r"[0-9][0-9.]*|NOASSERTION", package["versionInfo"]), package
for relation in bill["relationships"]:
    ends = {relation["spdxElementId"], relation["relatedSpdxElement"]}
    assert ends <= ids | {"SPDXRef-DOCUMENT"}, relation

names = {re.sub(r"^lib", "", package["name"]) for package in bill["packages"]}
loaded = set(re.findall(r"NEEDED.*\[(?:lib)?([\w+-]+?)(?:-[\d.]+)?\.so", sys.stdin.read()))
missing = loaded - {"z"} - OF_THE_SYSTEM - names
assert loaded and not missing, f"no package for {sorted(missing)}"
assert "z" not in loaded or "zlib" in names
