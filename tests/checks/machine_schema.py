#!/usr/bin/env python3
# tests/checks/machine_schema.py - every machine of the tree is valid by docs/machine.schema.json.
import json
import pathlib
import re
import sys

import jsonschema

root = pathlib.Path(__file__).resolve().parents[2]
schema = json.loads((root / "docs/machine.schema.json").read_text())
jsonschema.Draft201909Validator.check_schema(schema)
validator = jsonschema.Draft201909Validator(schema)
TEXT_OR_COMMENT = re.compile(r'("(?:\\.|[^"\\])*")|//[^\n]*|/\*.*?\*/', re.DOTALL)
failed = validator.is_valid({"tik": 1})
for file in sorted([*root.glob("machines/*.json"), *root.glob("tests/machines/*.json")]):
    machine = json.loads(TEXT_OR_COMMENT.sub(lambda found: found[1] or "", file.read_text()))
    for error in validator.iter_errors(machine):
        print(f"{file.name}: {error.json_path}: {error.message[:200]}")
        failed = True
sys.exit(failed)
