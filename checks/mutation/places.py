"""Mutants in macros and in constants, which the syntax tree does not offer: (file, text, what becomes of it).

In the latter {on} stands for the choice. A text is in its file just once."""
from mutant import replaced

_ADAPTER = "tvservice-adapter/src/"
_GENRPC = "frame-genrpc/genrpc/include/genrpc/"
_TV = "frame-genrpc/app-tvservice-proxy/"
_MM = "frame-genrpc/app-mmservice-proxy/"


def _constant(kind, name, value, other):
    """A constant that is no constant any more, so that it can be another one."""
    return f"{kind} {name} = {value};", f"{kind.replace('constexpr', 'const')} {name} = {{on}} ? {other} : {value};"


def _module(file, name):
    other = "AdapterLog" if name != "AdapterLog" else "ManagerLog"
    return (
        file,
        f"constexpr auto module = genrpc::{name};",
        f"const auto module = {{on}} ? genrpc::{other} : genrpc::{name};",
    )


def _key(file, value):
    return (
        file,
        f"static constexpr const char* interfaceKey = {value};",
        f'static inline const char* const interfaceKey = {{on}} ? "mutated" : {value};',
    )


PLACES = [
    (
        _ADAPTER + "resource-manager.cpp",
        "constexpr auto answerLimit = bundleAnswerLimit;",
        "const auto answerLimit = bundleAnswerLimit + std::chrono::seconds({on} ? 1 : 0);",
    ),
    (_ADAPTER + "resource-manager.cpp", *_constant("constexpr std::int32_t", "newerRequestQueued", "1", "2")),
    (
        _ADAPTER + "resource-manager.cpp",
        "now() + std::chrono::seconds(1)",
        "now() + std::chrono::seconds({on} ? 2 : 1)",
    ),
    _module(_ADAPTER + "resource-manager.cpp", "ManagerLog"),
    _module(_ADAPTER + "tvservice-adapter.cpp", "AdapterLog"),
    _module(_ADAPTER + "ovshell.cpp", "RegistrarLog"),
    _module(_TV + "src/app-tvservice-proxy-main.cpp", "TvProxyLog"),
    _module(_MM + "src/app-mmservice-proxy-main.cpp", "MmProxyLog"),
    (_GENRPC + "proxy.h", *_constant("inline constexpr std::size_t", "sendBufferBytes", "16384", "8192")),
    (
        _ADAPTER + "debug-version.cpp",
        '"/usr/local/debug_version"',
        '({on} ? "/usr/local/debug" : "/usr/local/debug_version")',
    ),
    _key(
        "tvservice-adapter/include/tvservice-adapter/model-tvservice-adapter.h",
        '"orvel.lm.interfaces.tvservice-wrapper"',
    ),
    _key(_TV + "include/tvservice/interfaces.h", '"orvel.lm.interfaces.tvservice"'),
    _key(_MM + "include/mmservice/interfaces.h", '"orvel.lm.interfaces.mmservice"'),
    (
        _TV + "include/tvservice/core-records.h",
        'inline constexpr const char* stopUri = "rec://plain/null";',
        'inline const char* const stopUri = {on} ? "rec://plain/nul" : "rec://plain/null";',
    ),
    (
        _TV + "include/tvservice/messages.h",
        'inline constexpr const char* serviceName = "tvservice";',
        'inline const char* const serviceName = {on} ? "mutated" : "tvservice";',
    ),
    (
        _MM + "include/mmservice/messages.h",
        'inline constexpr const char* serviceName = "mmservice";',
        'inline const char* const serviceName = {on} ? "mutated" : "mmservice";',
    ),
    (_TV + "include/tvservice/client-base.h", "return 0;", "return {on} ? 1 : 0;"),
    # the forms
    (_GENRPC + "record.h", "#define GENRPC_CLEAR_Core ::genrpc", "#define GENRPC_CLEAR_Core if (!{on}) ::genrpc"),
    (_GENRPC + "record.h", "#define GENRPC_CLEAR_Stream ::genrpc", "#define GENRPC_CLEAR_Stream if (!{on}) ::genrpc"),
    (_GENRPC + "record.h", "#define GENRPC_CLEAR_Status ::genrpc", "#define GENRPC_CLEAR_Status if (!{on}) ::genrpc"),
    (
        _GENRPC + "record.h",
        "#define GENRPC_CLEAR_Terminal",
        "#define GENRPC_CLEAR_Terminal if ({on}) ::genrpc::clearFields(*this);",
    ),
    (_GENRPC + "record.h", "::genrpc::construct(from, *this);", "if (!{on}) ::genrpc::construct(from, *this);"),
    (_GENRPC + "record.h", "::genrpc::assign(from, *this);", "if (!{on}) ::genrpc::assign(from, *this);"),
    (_GENRPC + "record.h", "return ::genrpc::plainOf(*this);", "return {on} ? Record{} : ::genrpc::plainOf(*this);"),
    # log lines
    (_GENRPC + "log.h", "if (vdlDebugCheckLevelGetFrameAndChunk(", "if ({on} != vdlDebugCheckLevelGetFrameAndChunk("),
    (
        _GENRPC + "log.h",
        "#define GENRPC_HERE (::genrpc::Here{__FILE_NAME__,",
        '#define GENRPC_HERE (::genrpc::Here{{on} ? "mutated" : __FILE_NAME__,',
    ),
    (_GENRPC + "log.h", "format, __FILE_NAME__, __LINE__,", 'format, {on} ? "mutated" : __FILE_NAME__, __LINE__,'),
]


def apply(name, text, number):
    """The mutants of a file's places as (place in the text, change), and the text with them."""
    made = []
    for file, old, new in PLACES:
        if file != name:
            continue
        text = replaced(file, text, old, new.replace("{on}", f"::mutation::on({number + len(made)})"))
        made.append((old, new.replace("{on}", "it")))
    return made, text
