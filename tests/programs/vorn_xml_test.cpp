#include "support/harness.h"
#include "support/program.h"

namespace {

TEST(VornXml, ShowsDocumentsMatchesAndFaults) {
    const harness::scratch folder;
    const std::string document = R"(<?xml version="1.0" encoding='UTF-8'?><!--"1"-->
<!DOCTYPE a [ <!ENTITY e "]>'"> <!-- ' --> <?]>?> ]>
<?pi data?><a z="1" b='&lt;"' xmlns:p="urn:p" p:r="2" x:p:q="3" xmlns="urn:a">
  <b>one &amp; two	
  </b><p:b>\<![CDATA[<&amp;>
]]></p:b><b/></a>
)";
    const std::string long_line(200, 'x'), wide = "\xC3\xB6";
    const struct {
        const char *arguments;
        std::string document;
        int code;
        std::string output;
    } rows[] = {
        {"", document, 0, R"(?xml
  @version "1.0"
  @encoding "UTF-8"
comment() "\"1\""
processing-instruction() "pi data"
a
  @z "1"
  @b "<\""
  @xmlns:p "urn:p"
  @p:r "2"
  @x:p:q "3"
  @xmlns "urn:a"
  b
    text() "one & two\t\n  "
  p:b
    text() "\\"
    text() CDATA "<&amp;>\n"
  b
)"},
        {"--stat - 'a/*' | grep -v time, | tr -s ' '", document, 0,
         "elements 4\nattributes 6\ntexts 2\nCDATA sections 1\ncomments 1\nprocessing instructions 1\nlevels 3\n"
         "bytes 248\nmatches 3\n"},
        {"--ns - 'a/*'", document, 0, "/a/b {urn:a}\n/a/b {urn:p}\n/a/b {urn:a}\n"},
        {"--no-comments - 'comment()'", document, 1, "vorn xml: nothing matches 'comment()'\n"},
        {"- '/a/p:b/text()'", document, 0, "/a/p:b/text() \"\\\\\"\n/a/p:b/text() CDATA \"<&amp;>\\n\"\n"},
        {"--ns - a/@q", document, 0, "/a/@q {urn:p} \"3\"\n"},
        {"--text - a/@z", document, 0, "1\n"},
        {"--text", document, 0, "one & two\t\n  \n\\\n<&amp;>\n"},
        {"", "<a>&#1;&#127;\\</a>", 0, "a\n  text() \"\\x01\\x7F\\\\\"\n"},
        {"--ns", "<a><p:b/></a>", 1,
         "-: namespaces: a prefix is not declared or declared again, or an attribute is there twice\n"},
        {"", "\n", 1, "-:2:1: no element\n\n^\n"},
        {"", "", 1, "-:1:1: no element\n\n^\n"},
        {"", "<a>\n\t" + wide + "\t<b></c>\r\n</a>", 1,
         "-:2:9: an end tag that does not fit\n\t" + wide + "\t<b></c>\n\t \t    ^\n"},
        {"", "\xEF\xBB\xBF<!DOCTYPE a><a b=c/>", 1, "-:1:18: syntax error\n<!DOCTYPE a><a b=c/>\n                 ^\n"},
        {"", "<!DOCTYPE a [ <a/>", 1, "-:1:2: syntax error\n<!DOCTYPE a [ <a/>\n ^\n"},
        {"", std::string("<a>\1\0</a>", 9), 1, "-:1:5: a NUL byte, where the text would end\n<a>?\?</a>\n    ^\n"},
        {"", "<a>" + long_line + "<&>" + long_line, 1,
         "-:1:205: syntax error\n..." + long_line.substr(0, 59) + "<&>" + long_line.substr(0, 38) + "...\n" +
             std::string(63, ' ') + "^\n"},
        {"", "<a>" + wide + long_line.substr(0, 58) + "<&>", 1,
         "-:1:65: syntax error\n..." + long_line.substr(0, 58) + "<&>\n" + std::string(62, ' ') + "^\n"},
        {"none", "", 3, "vorn xml: none: No such file or directory\n"},
        {"{} a", "", 3, "vorn xml: {}: Is a directory\n"},
        {"- a b", "", 2, "vorn xml: unexpected 'b', try --help\n"},
        {"> /dev/full", "<a/>", 3, "vorn xml: write: IOERROR_WRITE:errno=28<No space left on device>\n"},
    };
    for (const auto &row : rows) {
        folder.write("document", row.document);
        folder.expect({{std::string("exec < {}/document; ./vorn xml ") + row.arguments, row.code, row.output}});
    }
}

TEST(VornXml, WalksDeepDocumentsAndStopsWhenNobodyReads) {
    const std::string indented(64, ' ');
    harness::scratch().expect({
        {"f() { yes $1 | head -n 100000 | tr -d '\\n'; }; { f '<a>'; printf end; f '</a>'; } > {}/deep", 0, ""},
        {"ulimit -s 256; ./vorn xml {}/deep | tail -n 2", 0,
         indented + "(100000) a\n" + indented + "(100001) text() \"end\"\n"},
        {"ulimit -s 256; ./vorn xml --text {}/deep", 0, "end\n"},
        {"{ ./vorn xml {}/deep 2>&3; echo $? >&3; } 3> {}/told | head -n 2; cat {}/told", 0,
         "a\n  a\nvorn xml: write: IOERROR_WRITE:errno=32<Broken pipe>\n3\n"},
    });
}

} // namespace
