#ifndef QOV_CONFIG_XML_QOV_XML_FILE_H
#define QOV_CONFIG_XML_QOV_XML_FILE_H

#include <cstddef>
#include <string>

class TiXmlDocument;

namespace qov {

/// What a file may have at most. TinyXML takes a multiple of its size in memory. It goes one call
/// deeper for each element inside another one, on the stack of whatever thread reads. It compares
/// each attribute with all before it in the element: with 100 of them that at most doubles the time
/// that a file takes, whatever its size; with thousands it is all of the time.
constexpr std::size_t kMostBytesOfXml = std::size_t{64} << 20;
constexpr int kDeepestXmlElement = 100;
constexpr int kMostXmlAttributes = 100;

/// Replaces what `document` holds by the content of `fileName`, which must be a regular file.
/// False with the `reason`, which does not name the file, when that cannot be read, TinyXML finds
/// an error in it or there is no memory; `document` may hold the part before that. Never waits for
/// a pipe.
bool loadXmlFile(const std::string& fileName, TiXmlDocument& document, std::string& reason);

}  // namespace qov

#endif
