#!/usr/bin/env python3
"""Checks hwc_cli's JSON output against docs/hwc_cli-json.schema.json.

Usage: validate_json_schema.py SCHEMA document|lines FILE

"document": FILE holds one --json document. "lines": FILE holds --json-lines
output, every line one event, the first of type "start" and the last of type
"end". Prints what does not match and exits 1; exits 0 when all matches.
"""
import json
import sys

import jsonschema


def main():
    schema_path, mode, path = sys.argv[1:4]
    with open(schema_path, encoding="utf-8") as f:
        schema = json.load(f)
    validator_class = jsonschema.validators.validator_for(schema)
    validator_class.check_schema(schema)
    validator = validator_class(schema)
    with open(path, encoding="utf-8") as f:
        text = f.read()
    if mode == "document":
        items = [json.loads(text)]
        if "type" in items[0]:
            print("a --json document has no 'type' key")
            return 1
    else:
        lines = [line for line in text.split("\n") if line]
        items = [json.loads(line) for line in lines]
        if not items or items[0].get("type") != "start" or items[-1].get("type") != "end":
            print("--json-lines output must begin with a start line and end with an end line")
            return 1
    problems = 0
    for number, item in enumerate(items, 1):
        for error in validator.iter_errors(item):
            problems += 1
            where = "/".join(str(p) for p in error.absolute_path)
            print(f"item {number} at '{where}': {error.message[:300]}")
    print(f"{len(items)} item(s) checked, {problems} problem(s)")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
