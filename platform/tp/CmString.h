// The string type of the transport and utility layers: plain std::string, named so that signatures
// shared with the session layer read the same on both sides.
#pragma once

#include <string>

using CCmString = std::string;
