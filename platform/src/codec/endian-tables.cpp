#include <vdl/endian-table.h>

namespace {

constexpr vdl::EndianEntry end{0, 0, vdl::EndianEntry::terminator};

constexpr vdl::EndianEntry characterEntries[] = {{0, vdl::EndianScalar1, 0}, end};
constexpr vdl::EndianTable character{1, characterEntries};
constexpr vdl::EndianEntry wordEntries[] = {{0, vdl::EndianScalar4, 0}, end};
constexpr vdl::EndianTable word{4, wordEntries};

constexpr vdl::EndianEntry stringEntries[] = {{0, vdl::EndianSequence, &character}, end};
constexpr vdl::EndianEntry stringListEntries[] = {{0, vdl::EndianSequence, &__vdl_EndianTable_vdlDeserString_t}, end};
constexpr vdl::EndianEntry wordListEntries[] = {{0, vdl::EndianSequence, &word}, end};

} // namespace

constinit const vdl::EndianTable __vdl_EndianTable_vdlDeserString_t{8, stringEntries};
constinit const vdl::EndianTable __vdl_EndianTable_vdlDeserBlobString_t{8, stringListEntries};
constinit const vdl::EndianTable __vdl_EndianTable_vdlDeserBlobUint32_t{8, wordListEntries};
