// Metadata block of the zyn_gatewalk profile (attributes 0x0C02..0x0C05).
#pragma once

#include "codec_internal.h"
#include "stunlib_zyn.h"

namespace gatewalk::detail {

// Where the two response elements go around MESSAGE-INTEGRITY for a message type.
enum class MalicePlacement { BothBefore, DnBeforeUpAfter, UpBeforeDnAfter };
MalicePlacement MalicePlacementFor(uint16_t messageType);

// MD-AGENT, MD-WORD and the response element that goes in front of MESSAGE-INTEGRITY.
bool EncodeMaliceBefore(Writer& w, const zyn_gatewalk::MaliceMetadata& md, MalicePlacement placement);
// The response element that goes behind MESSAGE-INTEGRITY, if any.
bool EncodeMaliceAfter(Writer& w, const zyn_gatewalk::MaliceMetadata& md, MalicePlacement placement);

// Decodes one metadata attribute into the block. Problems are printed to `stream` and never fail the
// message: the reader always moves past the attribute's padded length.
void DecodeMaliceAttribute(Reader& r, uint16_t type, uint16_t atrLength, zyn_gatewalk::StunMessage* m,
                           FILE* stream);

}  // namespace gatewalk::detail
