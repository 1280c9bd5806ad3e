#include "util/CmBase64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <climits>
#include <vector>

namespace {

// EVP_*Block take int lengths; anything this large is not a key or a certificate anyway.
constexpr size_t kMaxInput = static_cast<size_t>(INT_MAX / 4) * 3;

bool IsAlphabet(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// Checks the shape EVP_DecodeBlock does not: length, alphabet, padding only at the end. Returns the
// number of padding characters, or -1.
int CheckCanonical(std::string_view text)
{
    if (text.size() % 4 != 0 || text.size() > kMaxInput) return -1;
    size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
    for (size_t i = 0; i < text.size() - padding; ++i)
        if (!IsAlphabet(text[i])) return -1;
    return static_cast<int>(padding);
}

}  // namespace

CmResult CM_Base64Encode(const void* data, size_t length, std::string& out)
{
    out.clear();
    if (length == 0) return CM_OK;
    if (data == nullptr) return CM_ERROR_NULL_POINTER;
    if (length > kMaxInput) return CM_ERROR_INVALID_ARG;
    std::string text(4 * ((length + 2) / 3) + 1, '\0');  // EVP_EncodeBlock adds a NUL
    const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                        static_cast<const unsigned char*>(data), static_cast<int>(length));
    if (written < 0) return CM_ERROR_FAILURE;
    text.resize(static_cast<size_t>(written));
    out = std::move(text);
    return CM_OK;
}

CmResult CM_Base64Decode(std::string_view text, unsigned char* out, size_t capacity, size_t* outLength)
{
    if (outLength == nullptr) return CM_ERROR_NULL_POINTER;
    *outLength = 0;
    const int padding = CheckCanonical(text);
    if (padding < 0) return CM_ERROR_INVALID_ARG;
    if (text.empty()) return CM_OK;
    const size_t decodedLength = text.size() / 4 * 3 - static_cast<size_t>(padding);
    if (decodedLength > capacity) return CM_ERROR_INVALID_ARG;
    if (out == nullptr) return CM_ERROR_NULL_POINTER;
    // EVP_DecodeBlock writes whole groups of 3 (padding decodes to zero bytes), so it needs a
    // scratch buffer when the caller's room is exactly the payload.
    std::vector<unsigned char> scratch(text.size() / 4 * 3);
    const int written = EVP_DecodeBlock(scratch.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                        static_cast<int>(text.size()));
    if (written < 0 || static_cast<size_t>(written) != scratch.size()) return CM_ERROR_INVALID_ARG;
    std::copy(scratch.begin(), scratch.begin() + static_cast<std::ptrdiff_t>(decodedLength), out);
    *outLength = decodedLength;
    return CM_OK;
}

CmResult CM_Base64Decode(std::string_view text, std::string& out)
{
    out.clear();
    std::string bytes(text.size() / 4 * 3, '\0');
    size_t length = 0;
    const CmResult rv = CM_Base64Decode(text, reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), &length);
    if (rv != CM_OK) return rv;
    bytes.resize(length);
    out = std::move(bytes);
    return CM_OK;
}
