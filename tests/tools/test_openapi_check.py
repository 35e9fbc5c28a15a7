"""The check of docs/portal-api.yaml finds what is wrong with an OpenAPI document."""

import copy
import pathlib
import sys

import pytest
import yaml

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "script" / "lib"))

import openapi  # noqa: E402

DOCUMENT = {
    "openapi": "3.1.0",
    "info": {"title": "Greetings", "version": "1"},
    "paths": {"/greeting": {"get": {"responses": {"200": {
        "description": "A greeting.",
        "content": {"application/json": {
            "schema": {"$ref": "#/components/schemas/Greeting"},
            "examples": {"plain": {"value": {"text": "Hello"}}},
        }},
    }}}}},
    "components": {"schemas": {"Greeting": {
        "type": "object",
        "required": ["text"],
        "properties": {"text": {"type": "string", "maxLength": 5}, "loud": {"type": "boolean", "default": False}},
    }}},
}


def broken(*path, value):
    """The document with another value at one place; None takes away what stands there."""
    document = copy.deepcopy(DOCUMENT)
    place = document
    for name in path[:-1]:
        place = place[name]
    place[path[-1]] = value
    if value is None:
        del place[path[-1]]
    return document


ANSWER = ("paths", "/greeting", "get", "responses", "200")
BODY = (*ANSWER, "content", "application/json")
GREETING = ("components", "schemas", "Greeting")


def test_a_sound_document_passes():
    assert openapi.findings(DOCUMENT) == []


@pytest.mark.parametrize("document, told", [
    (broken("openapi", value="3.0.3"), "$.openapi: '3.0.3' does not match"),
    (broken(*ANSWER, "description", value=None), "'description' is a required property"),
    (broken("paths", "/greeting", "fetch", value={}), "'fetch' was unexpected"),
    (broken(*BODY, "schema", "$ref", value="#/components/schemas/Greetings"), "schemas/Greetings leads nowhere"),
    (broken(*BODY, "schema", "$ref", value="other.yaml#/Greeting"), "other.yaml#/Greeting leads nowhere"),
    (broken(*GREETING, "type", value="objekt"), "'objekt' is not valid"),
    (broken(*GREETING, "properties", "text", "type", value=7), "schemas/Greeting $.properties.text.type: 7"),
    (broken(*GREETING, "properties", "text", "maxLenght", value=7), "no such keyword: maxLenght"),
    (broken(*BODY, "schema", value={"anyOf": [{"typ": "object"}]}), "no such keyword: typ"),
    (broken(*BODY, "examples", value=None), "has no example"),
    (broken(*BODY, "examples", "plain", "value", "text", value="Good morning"), "$.text: 'Good morning' is too long"),
    (broken(*BODY, "examples", "plain", "value", "text", value=None), "'text' is a required property"),
    (broken(*GREETING, "properties", "loud", "default", value="no"), "default $: 'no' is not of type 'boolean'"),
], ids=lambda value: value if isinstance(value, str) else "")
def test_a_broken_document_is_told(document, told):
    assert told in "\n".join(openapi.findings(document))


@pytest.mark.parametrize("text, told", [
    ("a: 1\na: 2\n", "a stands twice"),
    ("200: 1\n", "200 stands twice or is no text"),
], ids=["twice", "a number"])
def test_a_member_that_is_no_text_or_stands_twice_is_told(tmp_path, text, told):
    (tmp_path / "document.yaml").write_text(text)

    with pytest.raises(yaml.YAMLError, match=told):
        openapi.read(tmp_path / "document.yaml")
