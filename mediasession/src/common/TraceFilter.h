// Traces long texts (session descriptions) line by line, with secrets masked on the way.
#pragma once

#include <string>

// Keys and ICE passwords become "******" unless the application asked for insecure logs.
extern const char* const kSecretPattern;      // "(inline\:)\S*|(ice-pwd\:)\S*"
extern const char* const kSecretReplacement;  // "$1$2 ******"

// Writes text to the trace at level, one line per trace line (long lines in pieces that fit the
// trace buffer), each after replacing what pattern matches with replacement. An empty pattern
// writes the text as it stands.
void OutputInfoTraceWithFilter(const std::string& text, const std::string& pattern, const std::string& replacement,
                               int level);

// The masked text itself, for callers that print rather than trace.
std::string MaskSecrets(const std::string& text, const std::string& pattern, const std::string& replacement);
