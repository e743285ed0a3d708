// Log lines of the product: the modules' numbers and the macros to write a line.
#pragma once

#include <vdl/debug.h>

#include <cstdint>

namespace genrpc {

enum LogModule : std::uint32_t {
    AdapterLog = 0x0101,
    ManagerLog = 0x0102,
    RegistrarLog = 0x0103,
    TvProxyLog = 0x0104,
    MmProxyLog = 0x0105,
};

// Names the modules, so that their levels can be set by name.
void nameLogModules();

// The source position of a line, which "%s:%d:%s(): " prints.
struct Here {
    const char* file;
    int line;
    const char* function;
};

} // namespace genrpc

// Writes a line without its source position.
#define GENRPC_LOG_PLAIN(module, severity, format, ...)                                    \
    do {                                                                                   \
        vdlDebugChunk genrpcChunk;                                                         \
        if (vdlDebugCheckLevelGetFrameAndChunk((module)*65536U + (severity), genrpcChunk)) \
            vdlDebugOutput0(genrpcChunk, format __VA_OPT__(, ) __VA_ARGS__);               \
    } while (false)

// Writes a line that begins with its source position: source file without folder, line, function.
#define GENRPC_HERE (::genrpc::Here{__FILE_NAME__, __LINE__, __func__})
#define GENRPC_LOG_AT(here, module, severity, format, ...)                              \
    GENRPC_LOG_PLAIN(module, severity, "%s:%d:%s(): " format, (here).file, (here).line, \
                     (here).function __VA_OPT__(, ) __VA_ARGS__)
#define GENRPC_LOG(module, severity, format, ...)                                      \
    GENRPC_LOG_PLAIN(module, severity, "%s:%d:%s(): " format, __FILE_NAME__, __LINE__, \
                     __func__ __VA_OPT__(, ) __VA_ARGS__)
