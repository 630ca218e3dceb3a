"""Holds JSON values to schemas.

Standard input is a JSON array of {"command", "schema", "values"}; each value is the text of one. A line is printed for each
schema or value that is wrong, and nothing when all is right.
"""
import json
import sys

from jsonschema import Draft202012Validator
from jsonschema.exceptions import SchemaError

for case in json.load(sys.stdin):
    try:
        Draft202012Validator.check_schema(case["schema"])
    except SchemaError as error:
        print(case["command"], "has no schema:", error.message)
        continue
    validator = Draft202012Validator(case["schema"])
    for text in case["values"]:
        try:
            value = json.loads(text)
        except ValueError as error:
            print(case["command"], "prints no JSON:", text, error)
            continue
        for error in validator.iter_errors(value):
            print(case["command"], "prints", text, "which is wrong at", error.json_path + ":", error.message)
