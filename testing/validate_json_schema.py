#!/usr/bin/env python3
"""Checks hwc_cli's JSON output against docs/hwc_cli-json.schema.json.

Usage: validate_json_schema.py SCHEMA MODE FILE [MODE FILE]...

MODE "document": FILE holds one --json document. MODE "lines": FILE holds
--json-lines output, every line one event, the first of type "start" and the
last of type "end". Prints what does not match, file by file, and exits 1;
exits 0 when everything matches.
"""
import json
import sys

import jsonschema


def items_of(mode, text):
    if mode == "document":
        document = json.loads(text)
        if "type" in document:
            raise ValueError("a --json document has no 'type' key")
        return [document]
    items = [json.loads(line) for line in text.split("\n") if line]
    if not items or items[0].get("type") != "start" or items[-1].get("type") != "end":
        raise ValueError("--json-lines output must begin with a start line and end with an end line")
    return items


def main():
    schema_path = sys.argv[1]
    pairs = list(zip(sys.argv[2::2], sys.argv[3::2]))
    with open(schema_path, encoding="utf-8") as f:
        schema = json.load(f)
    validator_class = jsonschema.validators.validator_for(schema)
    validator_class.check_schema(schema)
    validator = validator_class(schema)
    problems = 0
    checked = 0
    for mode, path in pairs:
        with open(path, encoding="utf-8") as f:
            text = f.read()
        try:
            items = items_of(mode, text)
        except ValueError as error:
            problems += 1
            print(f"{path}: {error}; it begins: {text[:200]!r}")
            continue
        for number, item in enumerate(items, 1):
            checked += 1
            for error in validator.iter_errors(item):
                problems += 1
                where = "/".join(str(p) for p in error.absolute_path)
                print(f"{path}: item {number} at '{where}': {error.message[:300]}")
    print(f"{len(pairs)} output(s), {checked} item(s) checked, {problems} problem(s)")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
