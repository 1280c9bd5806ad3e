#include "tp/CmCert.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <cctype>
#include <memory>

namespace {

template <class T, void (*Free)(T*)>
struct OsslDeleter {
    void operator()(T* p) const { Free(p); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, OsslDeleter<EVP_PKEY, EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, OsslDeleter<X509, X509_free>>;
using BioPtr = std::unique_ptr<BIO, OsslDeleter<BIO, BIO_free_all>>;
using BnPtr = std::unique_ptr<BIGNUM, OsslDeleter<BIGNUM, BN_free>>;

// 1024 is what the engine asks for (fast on small devices); DTLS peers accept it. The cap keeps a
// bad argument from tying up the certificate thread for minutes.
constexpr int kDefaultBits = 1024;
constexpr int kMinBits = 1024;
constexpr int kMaxBits = 8192;
constexpr int kDefaultDays = 365;
constexpr const char* kCommonName = "MediaSession";

bool BioToString(BIO* bio, CCmString& out)
{
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    if (length <= 0 || data == nullptr) return false;
    out.assign(data, static_cast<size_t>(length));
    return true;
}

bool SetRandomSerial(X509* cert)
{
    unsigned char bytes[8];
    if (RAND_bytes(bytes, sizeof(bytes)) != 1) return false;
    bytes[0] &= 0x7F;  // DER INTEGER serials must be positive
    bytes[0] |= 0x01;  // and non-zero
    BnPtr bn(BN_bin2bn(bytes, sizeof(bytes), nullptr));
    return bn && BN_to_ASN1_INTEGER(bn.get(), X509_get_serialNumber(cert)) != nullptr;
}

X509Ptr MakeSelfSigned(EVP_PKEY* key, int days)
{
    X509Ptr cert(X509_new());
    if (!cert || X509_set_version(cert.get(), 2) != 1 || !SetRandomSerial(cert.get())) return nullptr;
    if (X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) == nullptr ||
        X509_gmtime_adj(X509_getm_notAfter(cert.get()), static_cast<long>(days) * 24 * 3600) == nullptr)
        return nullptr;
    X509_NAME* name = X509_get_subject_name(cert.get());
    if (X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(kCommonName),
                                   -1, -1, 0) != 1 ||
        X509_set_issuer_name(cert.get(), name) != 1 || X509_set_pubkey(cert.get(), key) != 1)
        return nullptr;
    if (X509_sign(cert.get(), key, EVP_sha256()) <= 0) return nullptr;
    return cert;
}

// "sha-256", "SHA256" -> "sha256"; only the SHA family is offered.
const EVP_MD* DigestByName(const char* hash)
{
    if (hash == nullptr) return nullptr;
    std::string name;
    for (const char* p = hash; *p != '\0' && name.size() < 16; ++p)
        if (*p != '-') name += static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    if (name == "sha1") return EVP_sha1();
    if (name == "sha224") return EVP_sha224();
    if (name == "sha256") return EVP_sha256();
    if (name == "sha384") return EVP_sha384();
    if (name == "sha512") return EVP_sha512();
    return nullptr;
}

}  // namespace

CmResult CreateCert(CCmString& certificate, CCmString& privateKey, int bits, int /*reserved*/, int days)
{
    certificate.clear();
    privateKey.clear();
    if (bits <= 0) bits = kDefaultBits;
    if (days <= 0) days = kDefaultDays;
    if (bits < kMinBits || bits > kMaxBits) return CM_ERROR_INVALID_ARG;

    PkeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(bits)));
    if (!key) return CM_ERROR_FAILURE;
    X509Ptr cert = MakeSelfSigned(key.get(), days);
    if (!cert) return CM_ERROR_FAILURE;

    BioPtr certBio(BIO_new(BIO_s_mem()));
    BioPtr keyBio(BIO_new(BIO_s_mem()));
    if (!certBio || !keyBio || PEM_write_bio_X509(certBio.get(), cert.get()) != 1 ||
        PEM_write_bio_PrivateKey(keyBio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return CM_ERROR_FAILURE;
    CCmString certText;
    CCmString keyText;
    if (!BioToString(certBio.get(), certText) || !BioToString(keyBio.get(), keyText)) return CM_ERROR_FAILURE;
    certificate = std::move(certText);
    privateKey = std::move(keyText);
    return CM_OK;
}

CmResult GenerateFingerPrint(const CCmString& pemCertificate, CCmString& out, const char* hash)
{
    out.clear();
    const EVP_MD* md = DigestByName(hash);
    if (md == nullptr || pemCertificate.empty() || pemCertificate.size() > 64 * 1024) return CM_ERROR_INVALID_ARG;
    BioPtr bio(BIO_new_mem_buf(pemCertificate.data(), static_cast<int>(pemCertificate.size())));
    if (!bio) return CM_ERROR_FAILURE;
    X509Ptr cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!cert) return CM_ERROR_INVALID_ARG;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (X509_digest(cert.get(), md, digest, &length) != 1) return CM_ERROR_FAILURE;
    static const char kHex[] = "0123456789ABCDEF";
    CCmString text;
    text.reserve(length * 3);
    for (unsigned int i = 0; i < length; ++i) {
        if (i != 0) text += ':';
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 0x0F];
    }
    out = std::move(text);
    return CM_OK;
}
