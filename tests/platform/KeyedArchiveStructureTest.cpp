// What an archive must consist of to be read: archives that other writers make are accepted, broken
// ones are refused before anything is decoded.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "src/platform/BinaryPropertyListWriter.h"
#include "src/platform/KeyedArchive.h"
#include "tests/platform/ArchiveSupport.h"

namespace {

using archive_support::Entries;
using archive_support::exampleArchive;
using archive_support::read;
using archive_support::Reading;
using archive_support::render;
using qvr::Data;
using qvr::Date;
using qvr::TextSet;
using Writer = qvr::BinaryPropertyListWriter;
using Object = Writer::Object;
using ListEntries = std::vector<Writer::Entry>;

// The table of objects of an archive whose root is a token; a test replaces what it is about. UID 1
// is the root, 2 its class, 3 the class NSSet, 4 the class NSDate, 5 on are the test's own.
class Archive {
 public:
  Archive() {
    objects = {writer.string("$null"), 0, classNamed({"QVROAuth2Token", "NSObject"}),
               classNamed({"NSSet", "NSObject"}), classNamed({"NSDate", "NSObject"})};
  }

  Object classNamed(const std::vector<std::string>& names) {
    std::vector<Object> strings;
    for (const std::string& name : names)
      strings.push_back(writer.string(name));
    return dictionary({{"$classname", strings.front()}, {"$classes", writer.array(strings)}});
  }

  Object dictionary(const ListEntries& entries) { return writer.dictionary(entries); }
  Object array(const std::vector<Object>& elements) { return writer.array(elements); }
  Object uid(std::uint32_t uid) { return writer.UID(uid); }
  Object string(std::string_view text) { return writer.string(text); }

  // Adds an object to the table and answers a reference to it.
  Object reference(Object object) {
    objects.push_back(object);
    return uid(static_cast<std::uint32_t>(objects.size() - 1));
  }
  Object set(Object members) {
    return reference(dictionary({{"NS.objects", members}, {"$class", uid(3)}}));
  }

  // The archive whose root has the given entries, and its class.
  Data data(ListEntries rootEntries) {
    rootEntries.push_back({"$class", uid(2)});
    return dataWithRoot(dictionary(rootEntries));
  }
  Data dataWithRoot(Object root) {
    objects[1] = root;
    return dataWithTop(dictionary({{"root", uid(1)}}));
  }
  Data dataWithTop(Object top) {
    if (objects[1] == 0) objects[1] = dictionary({{"$class", uid(2)}});
    return file({{"$archiver", string("NSKeyedArchiver")},
                 {"$version", writer.integer(100000)},
                 {"$objects", array(objects)},
                 {"$top", top}});
  }
  Data file(const ListEntries& entries) {
    return writer.data(dictionary(entries)).value_or(Data());
  }

  Writer writer;
  std::vector<Object> objects;
};

void expectEntry(const Data& data, std::size_t index, const qvr::CodedValue& expected) {
  const Reading reading = read(data);
  EXPECT_TRUE(reading.succeeded) << reading.reason();
  const std::string key = reading.entries.at(index).first;
  EXPECT_EQ(render({reading.entries.at(index)}), render({{key, expected}}));
}

// Refused before decoding.
void expectRefused(const Data& data, const std::string& reason) {
  const Reading reading = read(data);
  EXPECT_FALSE(reading.succeeded) << reason;
  EXPECT_FALSE(reading.decodeCalled) << reason;
  ASSERT_NE(reading.error, nullptr);
  EXPECT_EQ(reading.error->code(), 4864) << reason;
  EXPECT_NE(reading.reason().find(reason), std::string::npos) << reading.reason();
}

void expectNoRoot(const Data& data) {
  const Reading reading = read(data);
  EXPECT_FALSE(reading.succeeded);
  EXPECT_FALSE(reading.decodeCalled);
  ASSERT_NE(reading.error, nullptr);
  EXPECT_EQ(reading.error->code(), 4865);
  EXPECT_EQ(reading.error->userInfo(), nullptr);
}

void expectWrongClass(const Data& data, const std::string& key) {
  const Reading reading = read(data);
  EXPECT_FALSE(reading.succeeded) << key;
  EXPECT_TRUE(reading.decodeCalled);
  ASSERT_NE(reading.error, nullptr);
  EXPECT_EQ(reading.error->code(), 4864);
  EXPECT_NE(reading.reason().find(key), std::string::npos) << reading.reason();
}

TEST(KeyedArchiveStructure, AnArchiveOfThisTestsMakingIsRead) {
  Archive archive;
  expectEntry(archive.data({{"QVR.accessToken", archive.reference(archive.string("at"))}}), 0,
              "at");
}

TEST(KeyedArchiveStructure, EntriesMayShareOneObject) {
  Archive archive;
  const Object at = archive.reference(archive.string("at"));
  const Data data = archive.data({{"QVR.accessToken", at}, {"QVR.refreshToken", at}});
  expectEntry(data, 0, "at");
  expectEntry(data, 3, "at");
}

TEST(KeyedArchiveStructure, StringsNumbersAndDatesMayStandInline) {
  Archive archive;
  const Data data = archive.data(
      {{"QVR.accessToken", archive.string("at")}, {"QVR.expiresIn", archive.writer.real(0.5)}});
  expectEntry(data, 0, "at");
  expectEntry(data, 2, 0.5);
}

TEST(KeyedArchiveStructure, TheTimeOfADateMayBeAnIntegerOrAReference) {
  Archive archive;
  const auto dateWith = [&archive](Object time) {
    const Object date = archive.dictionary({{"$class", archive.uid(4)}, {"NS.time", time}});
    return archive.data({{"QVR.creationDate", archive.reference(date)}});
  };
  expectEntry(dateWith(archive.writer.integer(7)), 5, Date{7});
  expectEntry(dateWith(archive.reference(archive.writer.real(7.5))), 5, Date{7.5});
  expectWrongClass(dateWith(archive.string("7")), "QVR.creationDate");
  expectWrongClass(dateWith(archive.uid(0)), "QVR.creationDate");
}

TEST(KeyedArchiveStructure, ADateWithoutATimeIsRefused) {
  Archive archive;
  const Object date = archive.dictionary({{"$class", archive.uid(4)}});
  expectWrongClass(archive.data({{"QVR.creationDate", archive.reference(date)}}),
                   "QVR.creationDate");
}

TEST(KeyedArchiveStructure, MembersOfASetMayBeSharedOrInline) {
  Archive archive;
  const Object mail = archive.reference(archive.string("mail"));
  const Object again = archive.reference(archive.string("mail"));
  const Object set = archive.set(archive.array({mail, mail, again, archive.string("openid")}));
  expectEntry(archive.data({{"QVR.grantedScopes", set}}), 4, TextSet{"mail", "openid"});
}

TEST(KeyedArchiveStructure, MembersOfASetMustBeStrings) {
  const std::function<Object(Archive&)> kMembers[] = {
      [](Archive& archive) { return archive.reference(archive.writer.integer(1)); },
      [](Archive& archive) { return archive.uid(0); },
      [](Archive& archive) { return archive.uid(1); },
      [](Archive& archive) { return archive.set(archive.array({})); },
      [](Archive& archive) { return archive.reference(archive.array({})); },
      [](Archive& archive) { return archive.reference(archive.uid(5)); },
  };
  for (const auto& member : kMembers) {
    Archive archive;
    const Object mail = archive.reference(archive.string("mail"));
    const Object set = archive.set(archive.array({mail, member(archive)}));
    expectWrongClass(archive.data({{"QVR.grantedScopes", set}}), "QVR.grantedScopes");
  }
}

TEST(KeyedArchiveStructure, AnArrayUnderTheKeyOfASetIsRefused) {
  Archive plain;
  const Object members = plain.array({plain.reference(plain.string("mail"))});
  expectWrongClass(plain.data({{"QVR.grantedScopes", plain.reference(members)}}),
                   "QVR.grantedScopes");
  Archive classed;
  const Object arrayClass = classed.reference(classed.classNamed({"NSArray", "NSObject"}));
  const Object array = classed.dictionary(
      {{"NS.objects", classed.array({classed.reference(classed.string("mail"))})},
       {"$class", arrayClass}});
  expectWrongClass(classed.data({{"QVR.grantedScopes", classed.reference(array)}}),
                   "QVR.grantedScopes");
}

TEST(KeyedArchiveStructure, ASetWithoutAnArrayOfMembersIsRefused) {
  Archive without;
  const Object empty = without.dictionary({{"$class", without.uid(3)}});
  expectWrongClass(without.data({{"QVR.grantedScopes", without.reference(empty)}}),
                   "QVR.grantedScopes");
  Archive other;
  expectWrongClass(other.data({{"QVR.grantedScopes", other.set(other.string("mail"))}}),
                   "QVR.grantedScopes");
}

TEST(KeyedArchiveStructure, AnObjectWithoutAClassIsOfNoClass) {
  Archive archive;
  const Object set = archive.dictionary({{"NS.objects", archive.array({})}});
  expectWrongClass(archive.data({{"QVR.grantedScopes", archive.reference(set)}}),
                   "QVR.grantedScopes");
}

TEST(KeyedArchiveStructure, ClassesMayNameTheAllowedOneAsAnAncestor) {
  Archive archive;
  archive.objects[2] = archive.classNamed({"QVRNewToken", "QVROAuth2Token", "NSObject"});
  archive.objects[3] = archive.classNamed({"NSMutableSet", "NSSet", "NSObject"});
  const Object set = archive.set(archive.array({archive.string("mail")}));
  expectEntry(archive.data({{"QVR.grantedScopes", set}}), 4, TextSet{"mail"});
}

TEST(KeyedArchiveStructure, ANameThatIsNotAmongTheClassesDoesNotCount) {
  Archive archive;
  archive.objects[2] = archive.dictionary({{"$classname", archive.string("QVROAuth2Token")},
                                           {"$classes", archive.array({archive.uid(0)})}});
  expectRefused(archive.data({}), "not of the allowed class QVROAuth2Token");
}

TEST(KeyedArchiveStructure, OfTwoEntriesWithOneKeyTheFirstIsRead) {
  Archive archive;
  const Data data = archive.data({{"QVR.accessToken", archive.string("first")},
                                  {"QVR.accessToken", archive.writer.integer(2)}});
  expectEntry(data, 0, "first");
}

TEST(KeyedArchiveStructure, AReferenceToAReferenceIsRefused) {
  Archive archive;
  const Object at = archive.reference(archive.string("at"));
  expectWrongClass(archive.data({{"QVR.accessToken", archive.reference(at)}}), "QVR.accessToken");
  Archive itself;
  expectWrongClass(itself.data({{"QVR.accessToken", itself.reference(itself.uid(5))}}),
                   "QVR.accessToken");
}

TEST(KeyedArchiveStructure, TheRootMayNotBeItsOwnEntry) {
  Archive archive;
  expectWrongClass(archive.data({{"QVR.accessToken", archive.uid(1)}}), "QVR.accessToken");
}

TEST(KeyedArchiveStructure, EveryReferenceMustExistEvenAnUnusedOne) {
  Archive used;
  expectRefused(used.data({{"QVR.accessToken", used.uid(5)}}), "does not exist");
  Archive unused;
  unused.reference(unused.array({unused.uid(70000)}));
  expectRefused(unused.data({}), "does not exist");
  Archive root;
  expectRefused(root.dataWithTop(root.dictionary({{"root", root.uid(5)}})), "does not exist");
}

TEST(KeyedArchiveStructure, EveryClassMustResolveEvenAnUnusedOne) {
  const std::function<Object(Archive&)> kClasses[] = {
      [](Archive& archive) { return archive.uid(0); },
      [](Archive& archive) { return archive.uid(1); },
      [](Archive& archive) { return archive.string("NSSet"); },
      [](Archive& archive) {
        return archive.classNamed({"NSSet", "NSObject"});
      },
      [](Archive& archive) {
        return archive.reference(archive.dictionary({{"$classname", archive.string("NSSet")}}));
      },
      [](Archive& archive) {
        return archive.reference(archive.dictionary({{"$classes", archive.array({})}}));
      },
      [](Archive& archive) {
        return archive.reference(archive.dictionary(
            {{"$classname", archive.array({})}, {"$classes", archive.array({})}}));
      },
      [](Archive& archive) {
        return archive.reference(archive.dictionary(
            {{"$classname", archive.string("NSSet")}, {"$classes", archive.string("NSSet")}}));
      },
  };
  for (const auto& unresolved : kClasses) {
    Archive archive;
    archive.reference(archive.dictionary({{"$class", unresolved(archive)}}));
    expectRefused(archive.data({}), "$class");
  }
}

TEST(KeyedArchiveStructure, WithoutARootThereIsNothingToRead) {
  Archive none;
  expectNoRoot(none.dataWithTop(none.dictionary({})));
  Archive other;
  expectNoRoot(other.dataWithTop(other.dictionary({{"token", other.uid(1)}})));
  Archive null;
  expectNoRoot(null.dataWithTop(null.dictionary({{"root", null.uid(0)}})));
}

TEST(KeyedArchiveStructure, TheRootMustBeAReferenceToAnObjectOfTheClass) {
  Archive inlined;
  const Object root = inlined.dictionary({{"$class", inlined.uid(2)}});
  expectRefused(inlined.dataWithTop(inlined.dictionary({{"root", root}})), "no reference");
  Archive string;
  expectRefused(string.dataWithRoot(string.string("token")), "QVROAuth2Token");
  Archive set;
  expectRefused(set.dataWithRoot(set.dictionary({{"$class", set.uid(3)}})), "QVROAuth2Token");
  Archive without;
  expectRefused(without.dataWithRoot(without.dictionary({})), "QVROAuth2Token");
}

TEST(KeyedArchiveStructure, TheHeaderMustBeThatOfAKeyedArchive) {
  const auto fileWith = [](std::string_view key, const std::function<Object(Archive&)>& value) {
    Archive archive;
    archive.objects[1] = archive.dictionary({{"$class", archive.uid(2)}});
    ListEntries header{{"$archiver", archive.string("NSKeyedArchiver")},
                       {"$version", archive.writer.integer(100000)},
                       {"$objects", archive.array(archive.objects)},
                       {"$top", archive.dictionary({{"root", archive.uid(1)}})}};
    std::erase_if(header, [key](const Writer::Entry& entry) { return entry.key == key; });
    if (value) header.push_back({key, value(archive)});
    return archive.file(header);
  };
  const auto string = [](Archive& archive) { return archive.string("$null"); };
  const auto empty = [](Archive& archive) { return archive.array({}); };
  const auto real = [](Archive& archive) { return archive.writer.real(100000); };
  const auto next = [](Archive& archive) { return archive.writer.integer(100001); };
  const auto noNull = [](Archive& archive) { return archive.array({archive.string("null")}); };
  ASSERT_TRUE(read(fileWith("extra", string)).succeeded);
  for (const auto& value :
       {std::function<Object(Archive&)>(), std::function<Object(Archive&)>(string),
        std::function<Object(Archive&)>(empty)}) {
    expectRefused(fileWith("$archiver", value), "$archiver");
    expectRefused(fileWith("$version", value), "$version");
    expectRefused(fileWith("$top", value), "$top");
    expectRefused(fileWith("$objects", value), "$objects");
  }
  expectRefused(fileWith("$version", real), "$version");
  expectRefused(fileWith("$version", next), "$version");
  expectRefused(fileWith("$objects", noNull), "$null");
}

TEST(KeyedArchiveStructure, AListThatIsNoDictionaryIsNoArchive) {
  Archive archive;
  for (const Object top : {archive.array({}), archive.string("root"), archive.uid(0)}) {
    expectRefused(archive.writer.data(top).value_or(Data()), "not a keyed archive");
  }
}

TEST(KeyedArchiveStructure, ForeignDataIsRefused) {
  expectRefused({}, "not a binary property list");
  const std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"></plist>";
  expectRefused(Data(xml.begin(), xml.end()), "not a binary property list");
  expectRefused(Data((1 << 20) + 1, 'x'), "1 MiB");
}

}  // namespace
