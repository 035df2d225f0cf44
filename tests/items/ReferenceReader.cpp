#include "tests/items/ReferenceReader.h"

#include "tests/support/TemporaryFolder.h"

#include <cstdio>
#include <memory>

namespace {

constexpr std::string_view kScript = R"(
import plistlib, sys
from plistlib import UID

top = plistlib.load(open(sys.argv[1], 'rb'))
assert set(top) == {'$version', '$archiver', '$top', '$objects'}, 'keys'
assert top['$version'] == 100000 and top['$archiver'] == 'NSKeyedArchiver', 'kind'
assert top['$top'] == {'root': UID(1)}, 'top'
objects = top['$objects']
assert objects[0] == '$null', 'nil'
seen = {0}

def resolve(reference):
    assert isinstance(reference, UID) and 0 < reference.data < len(objects), reference
    seen.add(reference.data)
    return objects[reference.data]

def text(reference):
    value = resolve(reference)
    if not isinstance(value, dict):
        assert isinstance(value, (str, bytes, bool, int, float)), value
        assert value != '$null'
        return repr(value)
    record = resolve(value['$class'])
    assert set(record) == {'$classname', '$classes'}, record
    assert record['$classes'][0] == record['$classname'] and record['$classes'][-1] == 'NSObject', record
    lineage = '<'.join(record['$classes'])
    if 'NSDictionary' in record['$classes']:
        assert set(value) == {'NS.keys', 'NS.objects', '$class'}, value
        assert len(value['NS.keys']) == len(value['NS.objects'])
        pairs = {resolve(k): text(v) for k, v in zip(value['NS.keys'], value['NS.objects'])}
    else:
        pairs = {k: text(v) if isinstance(v, UID) else repr(v) for k, v in value.items() if k != '$class'}
    return lineage + ' {' + ', '.join(f'{k}: {pairs[k]}' for k in sorted(pairs)) + '}'

result = text(UID(1))
assert len(sys.argv) > 2 or seen == set(range(len(objects))), 'objects that nothing refers to'
print(result)
)";

struct ClosePipe {
    void operator()(FILE* pipe) const { pclose(pipe); }
};

} // namespace

std::string readByReference(const platform::NSData& archive, Unreferred unreferred)
{
    const TemporaryFolder folder;
    const std::string script = folder.makeFile("read.py", kScript);
    const std::string file =
        folder.makeFile("archive.plist", {reinterpret_cast<const char*>(archive.data()), archive.size()});
    const std::string command =
        "python3 " + script + " " + file + (unreferred == Unreferred::Allowed ? " allowed" : "") + " 2>&1";
    const std::unique_ptr<FILE, ClosePipe> pipe(popen(command.c_str(), "r"));
    std::string output;
    char buffer[4096];
    while (pipe && fgets(buffer, sizeof buffer, pipe.get()))
        output += buffer;
    if (output.ends_with('\n'))
        output.pop_back();
    return output;
}
