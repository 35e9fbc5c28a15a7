"""The words that the person's page is written in: functions from values to pieces of HTML.

escaped() is the only way for a text from outside into the page.
"""

import html
import json
import time

import validate

SHOWN_TEXT_CHARACTERS = 2000
DAY_NAMES = ("Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat")


def escaped(value):
    """Any value as text for the page, escaped and of bounded length."""
    text = value if isinstance(value, str) else json.dumps(value, ensure_ascii=False)
    if len(text) > SHOWN_TEXT_CHARACTERS:
        text = text[:SHOWN_TEXT_CHARACTERS] + "…"
    return html.escape(text, quote=True)


def hint(text):
    return f'<p class="hint">{text}</p>'


def moment(at_ms):
    clock = time.strftime("%H:%M:%S", time.localtime(at_ms / 1000))
    return f'<time data-at="{int(at_ms)}">at {clock}</time>'


def counted(number, noun):
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def table(headings, rows):
    return f"<table><thead><tr>{headings}</tr></thead><tbody>{rows}</tbody></table>"


def tick(name, title, ticked):
    return f'<label class="tick"><input type="checkbox" name="{name}"{" checked" if ticked else ""}> {title}</label>'


def minutes_field(name, title, policy):
    return (
        f'<label>{title} <input type="number" name="{name}" min="0" max="{validate.MAX_MINUTES}" '
        f'value="{int(policy[name])}" required></label>'
    )


def clock_field(name, title, value):
    return f'<label>{title} <input type="time" name="{name}" value="{value}" required></label>'


def days_field(days):
    ticks = "".join(
        '<label class="tick">'
        f'<input type="checkbox" name="days" value="{day}"{" checked" if day in days else ""}> {name}</label>'
        for day, name in enumerate(DAY_NAMES)
    )
    return f'<div class="days">{ticks}</div>'
