// Base64 (RFC 4648, standard alphabet, with '=' padding, no line breaks), as SDES keys and DTLS-SRTP
// keys travel in text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tp/CmDefines.h"

// Encodes `length` bytes. A null `data` with a non-zero length is refused (CM_ERROR_NULL_POINTER).
CmResult CM_Base64Encode(const void* data, size_t length, std::string& out);

// Decodes canonical text: a multiple of 4 characters from the standard alphabet, '=' only as one
// or two final padding characters. Whitespace, URL-safe characters or bad padding are refused with
// CM_ERROR_INVALID_ARG, and `out` is then empty. Empty text decodes to nothing.
CmResult CM_Base64Decode(std::string_view text, std::string& out);

// The same into a caller's buffer: refused with CM_ERROR_INVALID_ARG (and *outLength 0) when the
// decoded bytes would not fit in `capacity`.
CmResult CM_Base64Decode(std::string_view text, unsigned char* out, size_t capacity, size_t* outLength);
