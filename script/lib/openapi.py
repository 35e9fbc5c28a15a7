"""Whether an OpenAPI 3.1 document says what it means to say. Part of script/check: openapi.py DOCUMENT

 - It is one: it fits the JSON Schema that the authors of OpenAPI publish for 3.1, which lies beside this file.
 - Each schema in it is a JSON Schema of 2020-12, without keywords that nobody knows: a misspelt one allows everything.
 - Each $ref leads somewhere within the document.
 - Each JSON body has examples, and each example and default fits its schema.
"""

import sys
from pathlib import Path

import yaml
from jsonschema import Draft202012Validator

import source_tree

META_SCHEMA = Path(__file__).with_name("openapi-3.1.schema.yaml")
ANNOTATIONS = {"default", "deprecated", "description", "examples", "title", "then", "else"}
# Where schemas stand within a schema: as members of an object, as elements of an array, or as the value itself.
NAMED = ("properties", "patternProperties", "dependentSchemas")
LISTED = ("allOf", "anyOf", "oneOf", "prefixItems")
SINGLE = ("additionalProperties", "contains", "else", "if", "items", "not", "propertyNames", "then")


class Loader(yaml.CSafeLoader):
    """Refuses a member that stands twice in an object, of which the library would keep the last."""

    def construct_mapping(self, node, deep=False):
        names = [self.construct_object(name) for name, _ in node.value]
        for name in names:
            if not isinstance(name, str) or names.count(name) > 1:
                raise yaml.MarkedYAMLError(problem=f"{name} stands twice or is no text", problem_mark=node.start_mark)
        return super().construct_mapping(node, deep)


def read(path):
    """The document of a YAML file. Raises yaml.YAMLError."""
    return yaml.load(Path(path).read_text(encoding="utf-8"), Loader)


def resolve(document, reference):
    """What a $ref such as "#/components/schemas/Photo" leads to. Raises LookupError."""
    start, *steps = reference.split("/")
    if start != "#":
        raise LookupError(reference)
    value = document
    for step in steps:
        value = value[step.replace("~1", "/").replace("~0", "~")]
    return value


def resolved(document, value):
    """The object that stands at a place where a $ref may stand instead."""
    return resolve(document, value["$ref"]) if "$ref" in value else value


def violations(document, schema, value):
    """Sentences about where a value does not fit a schema of the document; none when it does."""
    # The $refs of the schema start at its root, which is therefore given the components.
    validator = Draft202012Validator({**schema, "components": document.get("components", {})})
    return [f"{error.json_path}: {error.message}" for error in validator.iter_errors(value)]


def subschemas(schema):
    """A schema and all that stand within it; a $ref is not followed."""
    yield schema
    for keyword, value in schema.items():
        if keyword in NAMED:
            inner = value.values()
        elif keyword in LISTED:
            inner = value
        else:
            inner = [value] if keyword in SINGLE else []
        for each in inner:
            if isinstance(each, dict):
                yield from subschemas(each)


def places(value, place="#"):
    """All objects of the document outside of examples, each with the place where it stands."""
    if isinstance(value, dict):
        yield place, value
    if isinstance(value, (dict, list)):
        for name, member in value.items() if isinstance(value, dict) else enumerate(value):
            if name not in ("example", "examples"):
                yield from places(member, f"{place}/{name}")


def check_form(document):
    errors = Draft202012Validator(read(META_SCHEMA)).iter_errors(document)
    # An error deep inside makes all around it wrong, too.
    deepest = max(errors, key=lambda error: len(error.path), default=None)
    if deepest:
        yield f"{deepest.json_path}: {deepest.message}"


def check_references(document):
    for place, value in places(document):
        reference = value.get("$ref")
        if isinstance(reference, str):
            try:
                resolve(document, reference)
            except (LookupError, TypeError):
                yield f"{place}: {reference} leads nowhere"


def schemas_of(document):
    """The outermost schemas, each with its place."""
    for name, schema in document.get("components", {}).get("schemas", {}).items():
        yield f"#/components/schemas/{name}", schema
    for place, value in places(document):
        if "schema" in value and not place.endswith("/properties"):
            yield f"{place}/schema", value["schema"]


def check_schemas(document):
    known = ANNOTATIONS | set(Draft202012Validator.VALIDATORS)
    for place, schema in schemas_of(document):
        for error in Draft202012Validator(Draft202012Validator.META_SCHEMA).iter_errors(schema):
            yield f"{place} {error.json_path}: {error.message}"
        for inner in subschemas(schema):
            yield from (f"{place}: no such keyword: {keyword}" for keyword in inner if keyword not in known)


def examples_of(place, value):
    """The examples beside a schema, each with its place."""
    if "example" in value:
        yield f"{place}/example", value["example"]
    for name, example in value.get("examples", {}).items():
        yield f"{place}/examples/{name}", example.get("value")


def check_examples(document):
    for place, value in places(document):
        if "schema" not in value or place.endswith("/properties"):
            continue
        examples = list(examples_of(place, value))
        if place.endswith("json") and not examples:
            yield f"{place}: has no example"
        for where, example in examples:
            yield from (f"{where} {violation}" for violation in violations(document, value["schema"], example))


def check_defaults(document):
    for place, schema in schemas_of(document):
        for inner in subschemas(schema):
            if "default" in inner:
                found = violations(document, inner, inner["default"])
                yield from (f"{place} default {violation}" for violation in found)


def findings(document):
    """Sentences about what is wrong with the document. What stands on broken ground is not looked at."""
    for check in (check_form, check_references, check_schemas, check_examples, check_defaults):
        found = list(check(document))
        if found:
            return found
    return []


def main():
    path = sys.argv[1]
    try:
        found = findings(read(path))
    except yaml.YAMLError as problem:
        found = [str(problem)]
    return source_tree.report([f"{path}: {finding}" for finding in found])


if __name__ == "__main__":
    sys.exit(main())
