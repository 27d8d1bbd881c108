// Keyed archives against an independent reader and writer of property lists: Python's plistlib.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "tests/platform/ArchiveSupport.h"
#include "tests/support/ChildProcess.h"

namespace {

using archive_support::archive;
using archive_support::Entries;
using archive_support::exampleEntries;
using archive_support::nilEntries;
using archive_support::read;
using archive_support::Reading;
using archive_support::render;
using qvr::CodedValue;
using qvr::Data;
using qvr::Date;
using qvr::TextSet;

// Prints what the root of each archive holds as render() does, then whether plistlib writes the
// same list to the same bytes. (It numbers objects and picks widths by itself.)
constexpr const char* kReader = R"(
import plistlib, struct, sys

def bits(number):
    return struct.pack('>d', number).hex()

def show(value, objects):
    if isinstance(value, plistlib.UID):
        if value.data == 0:
            return 'nil'
        value = objects[value.data]
    if isinstance(value, str):
        return 'string ' + value.encode('utf-8').hex()
    if isinstance(value, int):
        return 'integer %d' % value
    if isinstance(value, float):
        return 'real ' + bits(value)
    kind = objects[value['$class'].data]
    assert kind['$classes'] == [kind['$classname'], 'NSObject'], kind
    if kind['$classname'] == 'NSDate':
        return 'date ' + bits(value['NS.time'])
    assert kind['$classname'] == 'NSSet', kind
    members = [objects[member.data].encode('utf-8').hex() for member in value['NS.objects']]
    return 'set' + ''.join(' [%s]' % member for member in sorted(members))

for path in sys.argv[1:]:
    data = open(path, 'rb').read()
    archive = plistlib.loads(data)
    assert archive['$archiver'] == 'NSKeyedArchiver' and archive['$version'] == 100000
    objects = archive['$objects']
    assert objects[0] == '$null'
    root = objects[archive['$top']['root'].data]
    assert objects[root['$class'].data]['$classname'] == 'QVROAuth2Token'
    for key, value in root.items():
        if key != '$class':
            print(key, show(value, objects))
    same = plistlib.dumps(archive, fmt=plistlib.FMT_BINARY, sort_keys=False) == data
    print('same bytes' if same else 'other bytes')
)";

// Writes archives in the ways that other writers have of saying the same.
constexpr const char* kWriter = R"(
import datetime, os, plistlib, sys
from plistlib import UID

folder = sys.argv[1]
when = datetime.datetime(2023, 3, 8, 20, 26, 40)

def described(*names):
    return {'$classes': list(names) + ['NSObject'], '$classname': names[0]}

def example():
    return ['$null',
            {'QVR.accessToken': UID(2), 'QVR.tokenType': UID(3), 'QVR.expiresIn': UID(4),
             'QVR.refreshToken': UID(5), 'QVR.grantedScopes': UID(6), 'QVR.creationDate': UID(10),
             '$class': UID(12)},
            'at', 'Bearer', 3600, 'rt', {'NS.objects': [UID(7), UID(8)], '$class': UID(9)},
            'mail', 'openid', described('NSSet'), {'NS.time': 700000000.5, '$class': UID(11)},
            described('NSDate'), described('QVROAuth2Token')]

def write(name, objects, sort_keys=False, root=1, fmt=plistlib.FMT_BINARY):
    archive = {'$version': 100000, '$objects': objects, '$archiver': 'NSKeyedArchiver',
               '$top': {'root': UID(root)}}
    with open(os.path.join(folder, name), 'wb') as file:
        plistlib.dump(archive, file, fmt=fmt, sort_keys=sort_keys)

def with_object(number, value):
    objects = example()
    objects[number] = value
    return objects

write('plain', example())
write('sorted keys', example(), sort_keys=True)
write('reversed keys', with_object(1, dict(reversed(list(example()[1].items())))))
objects = example()
moved = {uid: len(objects) - uid for uid in range(1, len(objects))}
def renumber(value):
    if isinstance(value, UID):
        return UID(moved[value.data])
    if isinstance(value, dict):
        return {key: renumber(inner) for key, inner in value.items()}
    if isinstance(value, list):
        return [renumber(inner) for inner in value]
    return value
write('reversed objects', ['$null'] + [renumber(value) for value in reversed(objects[1:])],
      root=moved[1])
write('wide references', example() + ['spare %d' % i for i in range(400)])
write('wide offsets', example() + ['spare' * 20000])
write('wide everything', example() + list(range(1000, 67000)))
write('inline date', with_object(10, when))
objects = example()
objects[1].update({'QVR.accessToken': 'at', 'QVR.expiresIn': 3600, 'QVR.creationDate': when})
write('inline values', objects)
write('real number', with_object(4, 3600.0))
write('fractional number', with_object(4, 3599.5))
write('negative number', with_object(4, -3600))
write('long number', with_object(4, 2 ** 63))
write('boolean', with_object(4, True))
write('whole seconds', with_object(10, {'NS.time': 700000000, '$class': UID(11)}))
objects = example()
objects[9] = described('NSMutableSet', 'NSSet')
objects[12] = described('QVRNewToken', 'QVROAuth2Token')
write('ancestors', objects)
objects = example()
objects[1]['QVR.refreshToken'] = UID(2)
del objects[1]['QVR.tokenType']
objects[1]['QVR.expiresIn'] = UID(0)
objects[1]['Other'] = UID(13)
objects.append({'NS.data': b'1234', 'NS.values': [1, 2.5, when], '$class': UID(9)})
write('shared, missing, nil and more', objects)
write('non-ASCII', with_object(2, 'caf\u00e9 \U0001f511'))
write('refused: text for number', with_object(4, '3600'))
write('refused: number for text', with_object(2, 3600))
write('refused: data for text', with_object(2, b'at'))
write('refused: array for set', with_object(6, [UID(7), UID(8)]))
write('refused: array object for set', with_object(9, described('NSArray')))
write('refused: number in set', with_object(8, 5))
write('refused: text for date', with_object(10, '2023-03-08'))
write('refused: other root', with_object(12, described('QVRNewToken')))
write('refused: no class', with_object(12, 'QVROAuth2Token'))
write('refused: root out of range', example(), root=13)
xml = {'$version': 100000, '$objects': ['$null'], '$archiver': 'NSKeyedArchiver', '$top': {}}
with open(os.path.join(folder, 'refused: XML'), 'wb') as file:
    plistlib.dump(xml, file, fmt=plistlib.FMT_XML)
)";

std::string runPython(const char* script, const std::vector<std::string>& arguments) {
  support::ChildProcess::Options options;
  options.arguments = {"/usr/bin/env", "python3", "-c", script};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  support::ChildProcess python(options);
  python.closeInput();
  EXPECT_EQ(python.wait(), 0) << python.error();
  return python.output();
}

Entries with(std::size_t index, CodedValue value) {
  Entries entries = exampleEntries();
  entries[index].second = std::move(value);
  return entries;
}

std::vector<Entries> recordsOfEveryShape() {
  std::vector<Entries> records{exampleEntries(), nilEntries(), {}};
  for (std::size_t i = 0; i < exampleEntries().size(); ++i) {
    records.push_back(with(i, CodedValue()));
    records.push_back(exampleEntries());
    records.back().erase(records.back().begin() + static_cast<std::ptrdiff_t>(i));
  }
  for (const std::string& text :
       {std::string(), std::string("$null"), std::string("rt"), std::string(70000, 'x'),
        std::string("caf\xC3\xA9"), std::string("\xF0\x9F\x94\x91"),
        std::string(40000, 'x') + "\xC3\xA9"}) {
    records.push_back(with(0, text));
  }
  for (const std::int64_t number : {0, -1, 255, 256, 65536, 100000})
    records.push_back(with(2, number));
  for (const double number : {3600.0, 0.25, -3599.5, 700000000.5})
    records.push_back(with(2, number));
  TextSet scopes{"", "\xC3\xA9"};
  for (int i = 0; i < 300; ++i)
    scopes.insert("scope " + std::to_string(i));
  for (const TextSet& set : {scopes, TextSet(), TextSet{""}})
    records.push_back(with(4, set));
  for (const double seconds : {0.0, -978307200.0, 1e15})
    records.push_back(with(5, Date{seconds}));
  return records;
}

TEST(KeyedArchivePython, PlistlibReadsWhatIsWrittenAndWritesTheSameBytes) {
  const support::TemporaryFolder folder;
  std::vector<std::string> paths;
  std::string expected;
  for (const Entries& entries : recordsOfEveryShape()) {
    const Data data = archive(entries);
    paths.push_back(
        folder.write(std::to_string(paths.size()), std::string(data.begin(), data.end())));
    expected += render(entries) + "same bytes\n";
  }
  EXPECT_EQ(runPython(kReader, paths), expected);
}

class KeyedArchiveFromPython : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new support::TemporaryFolder;
    runPython(kWriter, {folder_->path()});
  }
  static void TearDownTestSuite() { delete folder_; }

  static Reading readFile(const std::string& name) {
    std::ifstream file(folder_->file(name), std::ios::binary);
    const Data data{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_FALSE(data.empty()) << name;
    return read(data);
  }

  static void expectRead(const std::string& name, const Entries& expected) {
    const Reading reading = readFile(name);
    EXPECT_TRUE(reading.succeeded) << name << ": " << reading.reason();
    EXPECT_EQ(render(reading.entries), render(expected)) << name;
  }

  static support::TemporaryFolder* folder_;
};

support::TemporaryFolder* KeyedArchiveFromPython::folder_ = nullptr;

TEST_F(KeyedArchiveFromPython, OtherOrdersAndWidthsReadAlike) {
  for (const char* name : {"plain", "sorted keys", "reversed keys", "reversed objects",
                           "wide references", "wide offsets", "wide everything", "ancestors"}) {
    expectRead(name, exampleEntries());
  }
}

TEST_F(KeyedArchiveFromPython, OtherFormsOfValuesAreRead) {
  Entries onTheSecond = with(5, Date{700000000});
  expectRead("inline date", onTheSecond);
  expectRead("inline values", onTheSecond);
  expectRead("whole seconds", onTheSecond);
  expectRead("real number", with(2, 3600.0));
  expectRead("fractional number", with(2, 3599.5));
  expectRead("negative number", with(2, std::int64_t{-3600}));
  expectRead("long number", with(2, 0x1p63));
  expectRead("boolean", with(2, std::int64_t{1}));
  expectRead("non-ASCII", with(0, "caf\xC3\xA9 \xF0\x9F\x94\x91"));
  Entries entries = with(3, "at");
  entries[1].second = entries[2].second = CodedValue();
  expectRead("shared, missing, nil and more", entries);
}

TEST_F(KeyedArchiveFromPython, WrongClassesAreRefusedByKey) {
  const std::map<std::string, std::string> kCases = {{"text for number", "QVR.expiresIn"},
                                                     {"number for text", "QVR.accessToken"},
                                                     {"data for text", "QVR.accessToken"},
                                                     {"array for set", "QVR.grantedScopes"},
                                                     {"array object for set", "QVR.grantedScopes"},
                                                     {"number in set", "QVR.grantedScopes"},
                                                     {"text for date", "QVR.creationDate"},
                                                     {"other root", "QVROAuth2Token"},
                                                     {"no class", "$class"},
                                                     {"root out of range", "does not exist"},
                                                     {"XML", "not a binary property list"}};
  for (const auto& [name, reason] : kCases) {
    const Reading reading = readFile("refused: " + name);
    EXPECT_FALSE(reading.succeeded) << name;
    EXPECT_NE(reading.reason().find(reason), std::string::npos) << name << reading.reason();
  }
}

}  // namespace
