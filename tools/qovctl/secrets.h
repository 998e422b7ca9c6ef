#ifndef QOV_TOOLS_QOVCTL_SECRETS_H
#define QOV_TOOLS_QOVCTL_SECRETS_H

#include <string>
#include <string_view>

namespace qov::ctl {

// Configuration for the eyes of others: "***" stands in place of what may be a secret. Rather too
// much is blanked than too little. A line stays a line, so that the numbers of lines still fit.
//
// A text looks like a secret's name if one of these words is anywhere in it, in any case: pass, pw,
// secret, token, key, priv, cred, auth, cookie, bearer, community, psk, ssk, jwt,
// hash, salt, login, session, kennwort.

inline constexpr std::string_view kBlank = "***";

bool looksSecret(std::string_view text);

/// Without what stands in front of an "@": "http://***@host/" of "http://me:pw@host/". More than
/// that is blanked where there are several addresses, and all of a text in several lines that
/// has an "@".
std::string withoutUser(std::string_view text);

/// Of an INI file: a value is blanked if section, key or value look secret, also in a comment. So
/// are other comments that do, lines between -----BEGIN and -----END, lines that are neither
/// section nor value nor comment, what stands behind a section, what may be the end of a value in
/// several lines, and the rest of a section behind a secret line that is too long for agents to
/// read as one. What is left is withoutUser().
std::string withoutSecretsOfIni(std::string_view text);

/// Of a device configuration: if an element's name, or a name or value of its attributes, look
/// secret, or those of an element around it, all of its values are blanked but the names in
/// DeviceDesc and, beside a Value, in Key. So are comments that look secret, all text between
/// elements, and everything behind the first place that is not well-formed, or that TinyXML
/// reads differently. What is left is withoutUser(), of comments line by line.
std::string withoutSecretsOfXml(std::string_view text);

// What both are made of.

inline constexpr std::string_view kBlanks = " \t\r\n\v\f";

/// Each line of `text` blanked, but for its indent; not a line of blanks alone.
std::string blanked(std::string_view text);

/// Whether `text` can be a name and nothing else.
bool isName(std::string_view text);

}  // namespace qov::ctl

#endif
