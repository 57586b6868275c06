"""The descriptions of published/methods.toml, checked and joined with what is published.

Everything that can be wrong with them is found here, so that what is written from them needs no
checks: fields, phrases, the methods and their order, names and numbers of parameters.
"""
import dataclasses
import pathlib
import re
import tomllib

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCE = ROOT / "vision/videoinput/src/oxvisionvideoinput/published/methods.toml"

TEXTS = {"summary", "details", "returns", "example", "note", "instead"}
FIELDS = TEXTS | {"parameters", "int_arrays", "errors", "also"}
# Braces in examples are C++.
PHRASE = re.compile(r"\{([a-z-]+)\}")


class Problem(Exception):
    """A text for whoever wrote the descriptions."""


def signature(published):
    return f"{published['name']}({', '.join(part['type'] for part in published['parameters'])})"


@dataclasses.dataclass
class Parameter:
    name: str
    type: str
    meaning: str
    is_int_array: bool


@dataclasses.dataclass
class Method:
    published: dict
    signature: str
    name: str
    parameters: list[Parameter]
    result_type: str
    result_is_int_array: bool
    texts: dict
    errors: list[str]
    also: list[str]

    def text(self, field):
        return self.texts.get(field, "").strip()


@dataclasses.dataclass
class Chapter:
    title: str
    text: str
    is_file_camera: bool
    methods: list[Method]


class Phrases:
    """Puts phrases in the place of their names, and knows which were never used."""

    def __init__(self, phrases):
        self.phrases = phrases
        self.unused = set(phrases)

    def expand(self, text):
        def phrase(match):
            if match[1] not in self.phrases:
                raise Problem(f"there is no phrase {match[0]}")
            self.unused.discard(match[1])
            return self.phrases[match[1]]

        return PHRASE.sub(phrase, text).strip()


def describe(published, own, phrases):
    """One publication with its description."""
    unknown = set(own) - FIELDS
    if unknown:
        raise Problem(f"unknown field {', '.join(sorted(unknown))}")
    if "summary" not in own or "example" not in own:
        raise Problem("a summary and an example are needed")
    names = list(own.get("parameters", {}))
    if len(names) != len(published["parameters"]):
        raise Problem(f"{len(published['parameters'])} parameters are published, "
                      f"{len(names)} are described")
    if ("returns" in own) != (published["return"]["type"] != "void"):
        raise Problem(f"\"returns\" does not fit the result, {published['return']['type']}")
    int_arrays = own.get("int_arrays", [])
    types = dict(zip(names, (part["type"] for part in published["parameters"])))
    types["returns"] = published["return"]["type"]
    for name in int_arrays:
        if types.get(name) != "OXValue":
            raise Problem(f"int_arrays: {name} is no OXValue")
    return Method(
        published=published, signature=signature(published), name=published["name"],
        parameters=[Parameter(name, types[name], phrases.expand(meaning), name in int_arrays)
                    for name, meaning in own.get("parameters", {}).items()],
        result_type=types["returns"], result_is_int_array="returns" in int_arrays,
        texts={field: text if field == "example" else phrases.expand(text)
               for field, text in own.items() if field in TEXTS},
        errors=[phrases.expand(text) for text in own.get("errors", [])],
        also=own.get("also", []))


def match(chapters, published):
    """The descriptions of the chapters in the order of publication, which must be theirs."""
    described = [key for chapter in chapters for key in chapter["method"]]
    wanted = [signature(method) for method in published]
    missing = [key for key in wanted if key not in described]
    left_over = [key for key in described if key not in wanted]
    if missing:
        raise Problem(f"without a description: {'; '.join(missing)}")
    if left_over:
        raise Problem(f"described but not published: {'; '.join(left_over)}")
    for key, expected in zip(described, wanted):
        if key != expected:
            raise Problem(f"out of order: {key} where {expected} is published")


class Descriptions:
    def __init__(self, service):
        try:
            source = tomllib.loads(SOURCE.read_text())
            self.introduction = source["introduction"]
            self.chapters = self.read(source, service)
        except (Problem, tomllib.TOMLDecodeError) as problem:
            raise Problem(f"{SOURCE.relative_to(ROOT)}: {problem}") from None

    @staticmethod
    def read(source, service):
        phrases = Phrases(source["phrases"])
        chapters = []
        for is_file_camera, published in ((False, service.methods), (True, service.file_methods)):
            own = [chapter for chapter in source["chapter"]
                   if ("camera" in chapter) == is_file_camera]
            match(own, published)
            rest = iter(published)
            for chapter in own:
                methods = []
                for key, description in chapter["method"].items():
                    try:
                        methods.append(describe(next(rest), description, phrases))
                    except Problem as problem:
                        raise Problem(f"{key}: {problem}") from None
                chapters.append(Chapter(chapter["title"], chapter["text"].strip(), is_file_camera,
                                        methods))
        if phrases.unused:
            raise Problem(f"phrases that nothing uses: {', '.join(sorted(phrases.unused))}")
        known = {method.signature for chapter in chapters for method in chapter.methods}
        for chapter in chapters:
            for method in chapter.methods:
                if method.text("instead") and method.text("instead") not in known:
                    raise Problem(f"{method.signature}: instead of it there is no "
                                  f"{method.text('instead')}")
        return chapters


def examples():
    """The examples alone, by signature: no broker is needed to know them."""
    return [(key, method["example"].strip())
            for chapter in tomllib.loads(SOURCE.read_text())["chapter"]
            for key, method in chapter["method"].items()]
