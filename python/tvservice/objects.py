"""Dataclasses that are read from JSON objects."""

from __future__ import annotations

import dataclasses
import functools
from typing import Any, ClassVar, Dict, List, Mapping, Type, TypeVar, Union, get_args, get_origin, get_type_hints

from .errors import BadAnswer

T = TypeVar("T", bound="JsonObject")


class JsonObject:
    """The base of dataclasses whose fields are the members of a JSON object."""

    _members: ClassVar[Mapping[str, str]] = {}  # the member of a field that has another name

    @classmethod
    def from_json(cls: Type[T], content: Any) -> T:
        """Ignores members that are not fields. Raises BadAnswer when one is missing or of another type."""
        made: T = _read(cls, content, cls.__name__)
        return made

    @classmethod
    def list_from_json(cls: Type[T], content: Any) -> List[T]:
        made: List[T] = _read(List[cls], content, cls.__name__)  # type: ignore[valid-type]
        return made

    @classmethod
    def _member(cls, field: str) -> str:
        return cls._members.get(field, field)


class Record(JsonObject):
    """A record or a message. Its fields have the names of the schema, also in JSON."""

    def to_json(self) -> Dict[str, Any]:
        return dataclasses.asdict(self)


class Answer(JsonObject):
    """A part of a command's answer. Its members are fieldsLikeThis in JSON."""

    @classmethod
    def _member(cls, field: str) -> str:
        first, *others = field.split("_")
        return cls._members.get(field, first + "".join(map(str.capitalize, others)))


@functools.lru_cache(maxsize=None)  # has an entry per class
def _hints(kind: Any) -> Dict[str, Any]:
    return get_type_hints(kind)


def _read(hint: Any, value: Any, path: str) -> Any:
    if get_origin(hint) is list:
        if not isinstance(value, list):
            raise _wrong(path, "a list", value)
        (element,) = get_args(hint)
        return [_read(element, each, f"{path}[{i}]") for i, each in enumerate(value)]
    if get_origin(hint) is Union:  # Optional
        return None if value is None else _read(get_args(hint)[0], value, path)
    if issubclass(hint, JsonObject):
        return _read_object(hint, value, path)
    if hint is float and isinstance(value, int):
        value = float(value)
    if type(value) is not hint:  # a flag is not a number
        raise _wrong(path, hint.__name__, value)
    return value


def _read_object(kind: Any, value: Any, path: str) -> Any:
    if not isinstance(value, dict):
        raise _wrong(path, "an object", value)
    content = {}
    for field in dataclasses.fields(kind):
        member = kind._member(field.name)
        if member not in value:
            raise BadAnswer(f"{path}: no member {member}; are this module and the receiver of the same version?")
        content[field.name] = _read(_hints(kind)[field.name], value[member], f"{path}.{member}")
    return kind(**content)


def _wrong(path: str, wanted: str, value: Any) -> BadAnswer:
    return BadAnswer(f"{path}: expected {wanted}, not {repr(value)[:80]}")
