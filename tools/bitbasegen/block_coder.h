// Writing bitbase files: the block coder that the store's decodeBitbaseBody undoes, and the
// file layout around it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A compressed body for the 512 bytes of `block`: the escape byte first, then the codes. Always
// decodes to the block; the caller stores it raw when it isn't shorter.
std::vector<uint8_t> encodeBitbaseBody(const uint8_t* block);

// The whole file for these bits (one bit per index, index i in byte i >> 3 as bit i & 7; the
// last block is padded with zeros): the directory, then the bodies.
std::vector<uint8_t> buildBitbaseFile(const std::vector<uint8_t>& bits);

// Writes the bytes to `path` + ".tmp", flushes them to disk and renames; false with `error` set
// if any step fails, leaving no file under `path` from this call.
bool writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes,
                         std::string& error);
