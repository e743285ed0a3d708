"""Generates source text from the message lists. Each function returns lines in clang-format's format."""

import re

from lists import ListError

LONGEST = 120
IDS = "frame::MsgIds& ids"
TRANSPORT = "const frame::TransportInfo& transport"

# Three of the adapter's requests have never logged a line, and one has always been virtual; both stay that way.
UNLOGGED = {"setCasService", "requestPackagesReq", "tvServiceSourceChanged"}
VIRTUAL = {"setCasService"}
# The adapter implements the play request itself and forwards all others.
IMPLEMENTED = {"TvServiceReq"}

# The example's arguments, where 1 or the argument's name makes little sense.
EXAMPLES = {
    "TvServiceReq": "{play}",
    "TvServiceVideoReq": "{.terminal = main, .intParam1 = 0}",
    "TvServiceTeletextReq": "{.terminal = main, .intParam1 = 0}",
    "SetParentalLockInfo": "{.terminal = main, .intParam1 = 0}",
    "TvServiceSendKeyReq": '"red"',
    "RequestPackagesReq": 'reqeustOadType_t{0}, "firmware"',
    "TvServiceSourceChanged": '"antenna"',
}


def wrapped(opening, parts, closing, indent):
    """opening + parts + closing in lines of at most LONGEST, parts aligned after the opening parenthesis."""
    margin = " " * (indent + len(opening))
    lines, line = [], " " * indent + opening
    for i, part in enumerate(parts):
        text = part + (closing if i + 1 == len(parts) else ",")
        space = "" if line.endswith("(") or line == margin else " "
        if len(line) + len(space) + len(text) > LONGEST and line.strip():
            lines.append(line)
            line, space = margin, ""
        line += space + text
    lines.append(line)
    hanging = " " * (indent + 4) + ", ".join(parts) + closing
    if len(lines) > 2 and len(hanging) <= LONGEST:
        return [" " * indent + opening, hanging]
    return lines


def parameters(service, message, names=True):
    def parameter(argument):
        type_ = service.local(argument.type)
        text = type_ if service.is_value(argument.type) else f"const {type_}&"
        return f"{text} {argument.name}" if names else text

    head = [IDS, TRANSPORT] if names else ["frame::MsgIds&", "const frame::TransportInfo&"]
    return [*head, *map(parameter, message.arguments)]


def names_of(message):
    return "".join(f", {argument.name}" for argument in message.arguments)


# ---- interfaces ----


def pure_methods(service, messages):
    return [
        line
        for message in messages
        for line in wrapped(f"virtual int {message.method}(", parameters(service, message), ") = 0;", 4)
    ]


def overrides(service, messages):
    return [
        line
        for message in messages
        for line in wrapped(f"int {message.method}(", parameters(service, message), ") override;", 4)
    ]


# ---- proxies ----

HANDLER = ["const frame::MsgMeta& meta", TRANSPORT, "const void* payload", "void* context"]


def handler_declarations(_service, messages):
    return [line for message in messages for line in wrapped(f"static int call{message.name}(", HANDLER, ");", 4)]


def binds(_service, messages):
    return [f"    genrpc::bind<messages::{message.name}>(*this, call{message.name});" for message in messages]


def senders(service, messages):
    lines = []
    for message in messages:
        head = [IDS, "const frame::TransportInfo&", *parameters(service, message)[2:]]
        lines += [
            "",
            *wrapped(f"int Proxy::{message.method}(", head, ") {", 0),
            '    GENRPC_LOG(module, vdlDebugTrace, "Called.\\n");',
            f"    return send<messages::{message.name}>(ids{names_of(message)});",
            "}",
        ]
    return lines[1:]


def handlers(_service, messages):
    lines = []
    for message in messages:
        head = ["const frame::MsgMeta&", *HANDLER[1:]]
        lines += [
            "",
            *wrapped(f"int Proxy::call{message.name}(", head, ") {", 0),
            '    GENRPC_LOG(module, vdlDebugTrace, "Eneter\\n");',
            "    auto& proxy = *static_cast<Proxy*>(context);",
            *wrapped(
                f"proxy.deliver<messages::{message.name}>(",
                [f"&ClientInterface::{message.method}", "transport", "payload"],
                ");",
                4,
            ),
            '    GENRPC_LOG(module, vdlDebugTrace, "Exit\\n");',
            "    return 0;",
            "}",
        ]
    return lines[1:]


# ---- adapter ----


def fan_out(service, messages):
    lines = []
    for message in messages:
        lines += [
            "",
            *wrapped(f"int TvServiceClient::{message.method}(", parameters(service, message), ") {", 0),
            "    const thread_safety::LockGuard lock(clientMutex);",
            f"    for (const auto& client : clients) client->{message.method}(ids, transport" f"{names_of(message)});",
            "    return 0;",
            "}",
        ]
    return lines[1:]


def forwarded(messages):
    return [message for message in messages if message.name not in IMPLEMENTED]


def adapter_declarations(service, messages):
    lines = []
    for message in forwarded(messages):
        if message.comment:
            lines += ["", *comment(message.comment)]
        virtual = "virtual " if message.method in VIRTUAL else ""
        lines += wrapped(f"{virtual}int {message.method}(", parameters(service, message), ");", 4)
    return lines[1:]


def comment(text):
    lines, line = [], "    //"
    for word in text.split():
        if len(line) + 1 + len(word) > LONGEST:
            lines.append(line)
            line = "    //"
        line += " " + word
    return [*lines, line]


def forwarders(service, messages):
    lines = []
    for message in forwarded(messages):
        lines += ["", *wrapped(f"int ModelTvServiceAdapter::{message.method}(", parameters(service, message), ") {", 0)]
        if message.method not in UNLOGGED:
            lines.append('    GENRPC_LOG(module, vdlDebugTrace, "Called.\\n");')
        lines += [f"    return tvService->{message.method}(ids, transport{names_of(message)});", "}"]
    return lines[1:]


# ---- exports ----


def demangled(type_):
    for plain, full in (
        ("std::uint32_t", "unsigned int"),
        ("std::int32_t", "int"),
        ("std::string", "std::__cxx11::basic_string<char, std::char_traits<char>, " "std::allocator<char> >"),
    ):
        type_ = re.sub(rf"{plain}\b", full, type_)
    return re.sub(r"std::vector<(.*)>$", r"std::vector<\1, std::allocator<\1> >", type_)


def export_of(service, message):
    arguments = [
        demangled(argument.type) + ("" if service.is_value(argument.type) else " const&")
        for argument in message.arguments
    ]
    everything = ", ".join(["frame::MsgIds&", "frame::TransportInfo const&", *arguments])
    return f"tvservice::ModelTvServiceAdapter::{message.method}({everything})"


def exports(tv, mm):
    """All exported names, sorted."""
    adapter = "tvservice::ModelTvServiceAdapter"
    names = [
        "CreateMMServiceProxy",
        "CreateTvMmService",
        "CreateTvServiceProxy",
        "frameCreateApplicationArray",
        f"{adapter}::addClient(boost::shared_ptr<tvservice::ClientInterface>)",
        f"{adapter}::removeClient(boost::shared_ptr<tvservice::ClientInterface>)",
        f"{adapter}::bundles() const",
        f"typeinfo for {adapter}",
        f"typeinfo name for {adapter}",
    ]
    for service in (tv, mm):
        names += [f"__vdl_EndianTable_serializable_{record.name}" for record in service.records]
        names += [
            f"__vdl_EndianTable_{service.name}Msg{message.name}_t"
            for message in service.requests() + service.notifications()
        ]
    names += [export_of(tv, message) for message in tv.requests()]
    return sorted(names)


def exported_methods(_service, messages):
    return [f"      tvservice::ModelTvServiceAdapter::{message.method}*;" for message in messages]


# ---- tests, examples ----


def entry_of(service, offset, argument):
    type_ = service.local(argument.type)
    element = re.fullmatch(r"std::vector<(.*)>", type_)
    if type_ == "std::string":
        text = "string"
    elif type_ == "std::vector<std::string>":
        text = "strings"
    elif type_ == "std::vector<std::uint32_t>":
        text = "words"
    elif element:
        text = f"(8: 0=[{element[1]}])"
    elif service.is_value(argument.type):
        text = str(service.bytes(argument.type))
    else:
        text = type_
    return f" {offset}={text}"


def layout_of(service, message):
    entries, offset = "", 0
    for argument in message.arguments:
        entries += entry_of(service, offset, argument)
        offset += service.bytes(argument.type)
    return f"{message.id:08X} {message.name} {offset or 1}:{entries}"


def layouts(services):
    return [
        f'        "{layout_of(service, message)}",'
        for service in services
        for message in service.requests() + service.notifications()
    ]


def example_of(service, message):
    if message.name in EXAMPLES:
        return EXAMPLES[message.name]

    def value_of(argument):
        type_ = service.local(argument.type)
        if type_ == "std::string":
            return f'"{argument.name}"'
        if type_ in service.enums:
            return type_ + "{1}"
        if service.is_value(argument.type):
            return "1"
        if type_.startswith("std::vector<"):
            return "{}"
        fields = {field.type: field.name for field in reversed(service.record(type_).fields)}
        chosen = [f".{fields['TvServiceTerminal_t']} = main"] if "TvServiceTerminal_t" in fields else []
        chosen += [f".{fields['std::int32_t']} = 1"] if "std::int32_t" in fields else []
        return "{" + ", ".join(chosen) + "}"

    return ", ".join(map(value_of, message.arguments))


def example_calls(service, messages):
    lines = []
    for message in messages:
        arguments = [part for part in ("ids", "here", example_of(service, message)) if part]
        line = f"            adapter.{message.method}({', '.join(arguments)}),"
        if len(line) > LONGEST:
            raise ListError(f"the example's call of {message.method} is too long; shorten it in EXAMPLES")
        lines.append(line)
    return lines
