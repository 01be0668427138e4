#!/usr/bin/env python3
"""schema-check.py --doc|--lines SCHEMA FILE: validates FILE as one JSON document (or one per line) against
the tool's JSON Schema (2020-12); prints "N documents, M errors", each error on standard error."""
import json
import sys

from jsonschema import Draft202012Validator
from jsonschema.exceptions import best_match

if len(sys.argv) != 4 or sys.argv[1] not in ("--doc", "--lines"):
    sys.exit("usage: schema-check.py --doc|--lines SCHEMA FILE")
lines, schema_path, doc_path = sys.argv[1] == "--lines", sys.argv[2], sys.argv[3]
with open(schema_path, encoding="utf-8") as f:
    schema = json.load(f)
Draft202012Validator.check_schema(schema)
with open(doc_path, encoding="utf-8") as f:
    docs = [json.loads(line) for line in f] if lines else [json.load(f)]
validator = Draft202012Validator(schema)
bad = 0
for i, doc in enumerate(docs, 1):
    for e in validator.iter_errors(doc):
        e = best_match([e])  # within a oneOf, the branch that came closest
        where = "/".join(map(str, e.absolute_path))
        print(f"document {i}/{where}: {e.message[:300]}", file=sys.stderr)
        bad += 1
print(f"{len(docs)} documents, {bad} errors")
sys.exit(0 if docs and not bad else 1)
