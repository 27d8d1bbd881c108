// The names that keyed archives are made of.
//
// The top dictionary holds the archiver's name and version, a table of objects, and the UID of the
// root, which is an index into the table. Element 0 of the table is the null value. Strings and
// numbers are elements themselves; any other object is a dictionary whose class is the UID of a
// description: the class's name and the names of it and its ancestors.
#pragma once

#include <cstdint>
#include <string_view>

namespace qvr::keyed_archive {

inline constexpr std::string_view kArchiverKey = "$archiver";
inline constexpr std::string_view kArchiverName = "NSKeyedArchiver";
inline constexpr std::string_view kVersionKey = "$version";
inline constexpr std::int64_t kVersion = 100000;
inline constexpr std::string_view kTopKey = "$top";
inline constexpr std::string_view kRootKey = "root";
inline constexpr std::string_view kObjectsKey = "$objects";
inline constexpr std::string_view kNull = "$null";

inline constexpr std::string_view kClassKey = "$class";
inline constexpr std::string_view kClassNameKey = "$classname";
inline constexpr std::string_view kClassesKey = "$classes";
inline constexpr std::string_view kRootClass = "NSObject";

inline constexpr std::string_view kSetClass = "NSSet";
inline constexpr std::string_view kSetMembersKey = "NS.objects";
inline constexpr std::string_view kDateClass = "NSDate";
inline constexpr std::string_view kDateTimeKey = "NS.time";

}  // namespace qvr::keyed_archive
