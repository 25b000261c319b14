#!/usr/bin/python3
"""Holds requests of the library against the JSON schemas in docs/schema.

usage: check_schemas.py SCHEMA_FOLDER REQUESTS   one {"target": ..., "body": ...} a line
exit status 1 when a request breaks its schema, or nothing was checked.
"""

import json
import pathlib
import sys

import jsonschema

SCHEMA_OF_TYPE = {
    "ReportTypeSessionFirst": "session-first",
    "ReportTypeSessionStart": "session-start",
    "ReportTypeSessionStop": "session-stop",
    "ReportTypeAdAttempt": "ad-attempt",
    "ReportTypeAdZoneAttempt": "ad-zone-attempt",
}


def validators(folder):
    for path in folder.glob("*.schema.json"):
        schema = json.loads(path.read_text(encoding="utf-8"))
        jsonschema.Draft7Validator.check_schema(schema)
        yield path.name.removesuffix(".schema.json"), jsonschema.Draft7Validator(schema)


def schema_name(target, body):
    return "config-request" if target == "/config" else SCHEMA_OF_TYPE[body["type"]]


def main(folder, requests):
    known = dict(validators(pathlib.Path(folder)))
    checked = wrong = 0
    for line in pathlib.Path(requests).read_text(encoding="utf-8").splitlines():
        request = json.loads(line)
        body = json.loads(request["body"])
        name = schema_name(request["target"], body)
        for violation in known[name].iter_errors(body):
            print(f"{name}: {violation.message} in {body}")
            wrong += 1
        checked += 1
    print(f"{checked} requests checked, {wrong} violations")
    return 1 if wrong or not checked else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
