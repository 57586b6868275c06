"""docs/reference.md: a method's own description, the calls that tests make, the published texts."""
import json
import re
import textwrap

from .descriptions import ROOT

CALLS = ROOT / "tests" / "published"


def row(*cells):
    return "| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |\n"


def table(head, rows):
    return row(*head) + row(*["---"] * len(head)) + "".join(rows) if rows else ""


def fenced(language, text):
    return f"```{'cpp' if language == 'C++' else language.lower()}\n{text.rstrip()}\n```\n"


def prose(text):
    """Paragraphs in lines of the width that the other documents have."""
    return "\n\n".join(textwrap.fill(" ".join(paragraph.split()), 100, break_long_words=False,
                                     break_on_hyphens=False)
                       for paragraph in re.split(r"\n\s*\n", text)) + "\n"


def quoted(text):
    """Lines of a text as they are, each on its own."""
    return "\n".join(f"> {line}  ".rstrip(" ") + "  " if line.strip() else ">"
                     for line in text.rstrip("\n").split("\n")).rstrip() + "\n"


def code(text):
    return f"`{json.dumps(text, ensure_ascii=True)}`"


def type_name(type_, is_int_array):
    return "array of int" if is_int_array else type_


def heading(method):
    parameters = ", ".join(f"{part.type} {part.name}" for part in method.parameters)
    return f"### `{method.result_type} {method.name}({parameters})`\n"


def own_words(method):
    """Everything that methods.toml says, but for the note on the published texts."""
    yield prose(method.text("summary"))
    if method.text("details"):
        yield prose(method.text("details"))
    if method.text("instead"):
        yield f"**Use instead:** `{method.text('instead')}`.\n"
    if method.parameters:
        yield table(("parameter", "type", "meaning"),
                    [row(f"`{part.name}`", type_name(part.type, part.is_int_array), part.meaning)
                     for part in method.parameters])
    if method.text("returns"):
        array = " (array of int)" if method.result_is_int_array else ""
        yield prose(f"**Returns**{array} {method.text('returns')}")
    if method.errors:
        yield "**Errors**\n\n" + "".join(f"- {text}\n" for text in method.errors)
    yield fenced("C++", method.text("example"))


def argument(value):
    if isinstance(value, dict) and "frame" in value:
        return "a frame of {} x {}".format(*value["frame"])
    if isinstance(value, dict):
        return next(iter(value.values()))
    if isinstance(value, list):
        return "[" + ", ".join(argument(element) for element in value) + "]"
    return json.dumps(value)


def call(name, case):
    return f"`{name}({', '.join(argument(value) for value in case['with'])})`"


def special_cases(method, cases):
    results = [row(case["when"], call(method.name, case), f"`{case['gives']}`")
               for case in cases if "gives" in case and "when" in case]
    errors = [row(case["when"], call(method.name, case), f"`{case['raises']}`", code(case["text"]))
              for case in cases if "raises" in case]
    if results:
        yield table(("case", "call", "returns"), results)
    if errors:
        yield table(("case", "call", "error of", "text"), errors)


def published_parts(published):
    """The parameters, and the result, that have a text."""
    def cell(part):
        return part["description"].strip().replace("\n", "<br>")

    lines = [row(f"`{part['name']}`", cell(part))
             for part in published["parameters"] if part["description"]]
    result = published["return"]
    if result["description"]:
        lines.append(row(f"`{result['name']}` (result)", cell(result)))
    return table(("name", "text"), lines)


def as_published(method):
    published = method.published
    parts = published_parts(published)
    if not (published["description"] or parts or published["examples"] or method.text("note")):
        return
    yield "**As published**\n"
    if method.text("note"):
        yield prose(f"*Note:* {method.text('note')}")
    if published["description"]:
        yield quoted(published["description"])
    if parts:
        yield parts
    for example in published["examples"]:
        yield fenced(example["language"], example["text"])


def module(service):
    text = "## The service, as published\n\n" + quoted(service.description)
    for language, example in service.examples:
        text += "\n" + fenced(language, example)
    return text


def status(service):
    """OXVideoStatus, whose own texts say all: results as lists of the fields of one array."""
    yield f"## OXVideoStatus\n\n{prose(service.status_description)}"
    yield prose("The three methods have no parameters and return an array of arrays, one for each "
                "subscriber, camera or recording, with the fields below in their order; later "
                "versions may add fields at the end. Integers that outgrow 32 bits stay at the "
                "largest. Each answer is of one moment.")
    for published in service.status_methods:
        yield f"### `array {published['name']}()`\n"
        _, fields = published["return"]["description"].split(": ", 1)
        yield prose(published["description"] + ". Each array has:")
        yield "".join(textwrap.fill(f"{number}. {field}", 100, subsequent_indent="   ") + "\n"
                      for number, field in enumerate(fields.split("; ")))
        for example in published["examples"]:
            yield fenced(example["language"], example["text"])


def streams(service):
    """OXVideoStream, whose own texts say all."""
    yield f"## OXVideoStream\n\n{prose(service.stream_description)}"
    yield prose("How answers look on the wire, and how a client maps shared memory: "
                "[streams](wire.md#streams). Modules of the broker's own process use "
                "`IVideoStream` (`<oxvision/ivideostream.h>`).")
    for published in service.stream_methods:
        parameters = ", ".join(f"{part['type']} {part['name']}"
                               for part in published["parameters"])
        yield f"### `{published['return']['type']} {published['name']}({parameters})`\n"
        yield prose(published["description"] + ".")
        yield table(("parameter", "type", "meaning"),
                    [row(f"`{part['name']}`", part["type"], part["description"])
                     for part in published["parameters"]])
        if published["return"]["description"]:
            yield prose(f"**Returns** {published['return']['description']}.")
        for example in published["examples"]:
            yield fenced(example["language"], example["text"])


def reference(service, descriptions):
    calls = json.loads((CALLS / "calls.json").read_text())
    file_calls = json.loads((CALLS / "calls_filecam.json").read_text())
    blocks = [descriptions.introduction.strip() + "\n", module(service)]
    for chapter in descriptions.chapters:
        blocks += [f"## {chapter.title}\n", prose(chapter.text)]
        for method in chapter.methods:
            cases = (file_calls if chapter.is_file_camera else calls)[method.signature]
            blocks += [heading(method), *own_words(method), *special_cases(method, cases),
                       *as_published(method)]
    blocks += status(service)
    blocks += [block for block in streams(service) if block]
    return "\n".join(blocks)
