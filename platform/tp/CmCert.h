// Self-signed certificates for DTLS and their fingerprints (RFC 4572 / RFC 8122 "a=fingerprint").
#pragma once

#include "tp/CmDefines.h"
#include "tp/CmString.h"

// Makes an RSA key of `bits` bits (0 or less means 1024) and a self-signed X.509 v3 certificate
// for it: random positive 64-bit serial, SHA-256 signature, valid from now for `days` days (0 or
// less means 365). Both come out as PEM text ("BEGIN CERTIFICATE", unencrypted PKCS#8 "BEGIN PRIVATE
// KEY"). `reserved` is not read. Refuses sizes under 1024 or over 8192 bits with
// CM_ERROR_INVALID_ARG; an OpenSSL failure gives CM_ERROR_FAILURE and leaves both strings empty.
CmResult CreateCert(CCmString& certificate, CCmString& privateKey, int bits = 1024, int reserved = 0,
                    int days = 365);

// Digest of the DER form of a PEM certificate as upper-case hex pairs joined by ':'
// ("AB:01:..."). `hash` is "sha-1" (default), "sha-224", "sha-256", "sha-384" or "sha-512", also
// accepted without the dash and in any case. An unknown hash or unreadable certificate gives
// CM_ERROR_INVALID_ARG and an empty `out`.
CmResult GenerateFingerPrint(const CCmString& pemCertificate, CCmString& out, const char* hash = "sha-1");
