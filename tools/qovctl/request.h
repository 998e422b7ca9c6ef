#ifndef QOV_TOOLS_QOVCTL_REQUEST_H
#define QOV_TOOLS_QOVCTL_REQUEST_H

#include <qovpub/qov_message_package.h>

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

#include "tools/qovctl/tables.h"

namespace qov::ctl {

/// The V3 message that JSON text describes: a message, or a document with one. Throws BadJson.
void requestFromJson(const std::string& text, CT7QPackageV3& request);

/// A part of a request on the command line, in its order there.
struct RequestPart {
  bool isCell;       ///< else the command that begins a record
  std::string text;  ///< as cellOfText() or Tables::commandOfText() has it
};

/// The parts that the command line has as values of --command and --cell, which `commands` and
/// `cells` are, each by itself.
std::vector<RequestPart> partsInOrder(const CLI::App& line,
                                      const std::vector<std::string>& commands,
                                      const std::vector<std::string>& cells);

/// @{
/// Throws Failure with the part that is none, and for a cell without a record.
void requestFromParts(const std::vector<RequestPart>& parts, const Tables& tables,
                      CT7QPackageV3& request);
void requestFromParts(const std::vector<RequestPart>& parts, const Tables& tables,
                      CQOV_MsgPackage& request);
/// @}

}  // namespace qov::ctl

#endif
