#ifndef QOV_TOOLS_COMMON_STANDARD_STREAMS_H
#define QOV_TOOLS_COMMON_STANDARD_STREAMS_H

namespace qov::tools {

/// Lets no file or socket that the program opens become its standard input, output or error: one
/// that the caller has closed fails when it is used. Call it first in main().
void keepStandardStreams();

}  // namespace qov::tools

#endif
