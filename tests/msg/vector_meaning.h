#ifndef QOV_TESTS_MSG_VECTOR_MEANING_H
#define QOV_TESTS_MSG_VECTOR_MEANING_H

#include <json/value.h>
#include <qovpub/qov_om_message_package.h>

namespace qov::tests {

// Between packages and the meanings of tests/vectors, through the library's public operations and
// without its JSON writer's help for anything but Json cells.

/// What the package says.
Json::Value meaningOf(const CT7QPackageV3& package);
Json::Value meaningOf(const CQOV_MsgPackage& package);
Json::Value meaningOf(const CQOV_OM_MsgPackage& package);

/// Makes an empty package say what `meaning` does.
void fill(CT7QPackageV3& package, const Json::Value& meaning);
void fill(CQOV_MsgPackage& package, const Json::Value& meaning);
void fill(CQOV_OM_MsgPackage& package, const Json::Value& meaning);

}  // namespace qov::tests

#endif
