// What is read of a document: by this library, and by expat where that is installed.
#include <regex.h>

#include <filesystem>
#include <fstream>

#include "xml/outline.h"
#ifdef HAVE_EXPAT
#include <expat.h>
#endif

namespace {

const struct {
    const char *text, *outline;       // or "@" and the offset of the error
    const char *difference = nullptr; // what expat reads otherwise; docs/compatibility.md explains it
    uint32_t skip_mask = 0;
} documents[] = {
    {" \t\r\n<a > </a > \n", "a[]"},
    {"<a><b/><c></c><b><x:d-e.f_9/></b></a>", "a[b[] c[] b[x:d-e.f_9[]]]"},
    {"<!--1--><?q 2?><a/><?q 3?><!--4-->", "#1# %q 2% a[] %q 3% #4#"},
    {"<a> x > \xC3\xA4\r\n\"' \n<b/> z <c/></a>", "a['x > \xC3\xA4\r\n\"' \n' b[] 'z ' c[]]"},
    {"<a>&lt;&#65;&#x42;&amp;lt;&apos;&quot;</a>", "a['&lt;&#65;&#x42;&amp;lt;&apos;&quot;']"},
    {"<a>x<!-- - -> -->y<!----></a>", "a['x' # - -> # 'y' ##]"},
    {"<a> <![CDATA[ <b>&lt;]]]> <![CDATA[]]></a>", "a[! <b>&lt;]! !!]"},
    {"<a><?p <x> ? > q?></a>", "a[%p <x> ? > q%]"},
    {"<a b='' c=\" &lt;>\n2 \"></a>", "a{b= c= &lt;>\n2 }[]"},
    {"<a\tb\n = \r'\"' >x</a>", "a{b=\"}['x']"},
    {"<a x:b='1' xmlns:x='X' xmlns='Y'/>", "a{x:b=1 xmlns:x=X xmlns=Y}[]"},
    {"<?xml version='1.0' encoding=\"utf-8\" ?><a/>", "xml{encoding=utf-8 version=1.0} a[]"},

    {"<!DOCTYPE a><a/>", "@1", "document types"},
    {"<?xml version='1.0' encoding='x'?><a>\xC3</a>", "xml{encoding=x version=1.0} a['\xC3']", "encodings"},
    {"\xEF\xBB\xBF<a/>", "@3", "encodings"},
    {"<9/>", "9[]", "names"},
    {"<\xC3\xA4/>", "@1", "names"},
    {"<a\xC3\xA4/>", "@2", "names"},
    {"<!--c--><?xml v='1'?><a/>", "#c# %xml v='1'% a[]", "declarations"},
    {" <?xml ?><a/>", "xml a[]", "declarations"},
    {"<?xml v='1'w='2'?>\n<a/>", "xml{v=1 w=2} a[]", "declarations"},
    {"<?xml-stylesheet href='x'?><a/>", "@5", "declarations"},
    {"<a>&#955;&nbsp;</a>", "a['&#955;&nbsp;']", "references"},
    {"\v\f<a b='1'c='2'>&#10;x</a>", "a{b=1 c=2}['&#10;x']", "white space"},
    {"<a>x & y ]]><!-- -- --><?\?></a>", "a['x & y ]]>' # -- # %%]", "loose markup"},
    {"<a b='<'c><a b='1'x/><a b/></a>", "a{b=<}[a{b=1}[] a[]]", "loose markup"},

    {"<!--c--><a><!--c-->x<!--c--><b><!--c--></b></a>", "a['x' b[]]", "left out", XP_XML_COMMENT},
    {"x<a>x<b/>y<![CDATA[z]]></a>y<!--c-->", "a[b[] !z!] #c#", "left out", XP_XML_TEXT},
    {"<a/>x", "@4", "left out", XP_XML_TEXT},
    {"<![CDATA[x]]><a><![CDATA[x]]><?p?></a>", "a[%p%]", "left out", XP_XML_CDATA},
    {"<?p?><a>x<?p?>y</a>", "a['x' 'y']", "left out", XP_XML_PI},
    {"<a/>", "@4", "left out", XP_XML_ELEMENT},
    {"<a><!--<b>", "@7", "left out", XP_XML_COMMENT},
    {"<a><b><c/></b>", "@14", "left out", 31},
};

// What both refuse. A "|" stands where this parser gets stuck.
const std::vector<std::pair<const char *, std::vector<std::string>>> refused = {
    {"cut short", {"|", "<a|", "<a>|", "<a>|x", "<a/><|", "<a/><b|"}},
    {"tags", {"<a><b><|/a>", "<a><|/ab>", "<ab><|/a>", "<| a/>", "<a|/ >"}},
    {"the top level", {"<!--c-->|", "<a/><b/>|", "<a/>|x", "x|<a/>", "<a/><![CDATA[x]]>|"}},
    {"sections", {"<a><!--|></a>", "<a><![CDATA[|x]></a>", "<a><?|p></a>"}},
    {"attributes", {"<a b| />", "<a b| c='1'/>", "<a b=|1/>", "<a b='|1\"/>", "<a b='1' b='2'|/>"}},
    {"the declaration", {"<?xml|?><a/>", "<?xml v='1' v='2'|?><a/>", "<?xml v='1'|><a/>"}},
};

#ifdef HAVE_EXPAT

/// Of an outline, what every parser must read alike: neither white space nor how a text is quoted.
std::string names_and_text(std::string outline) {
    std::erase_if(outline, [](char c) { return strchr(" \t\r\n\v\f'!", c); });
    return outline;
}

/// Of a tree with its references replaced; "" when the text is refused.
std::string own_reading(const std::string &text) {
    outline::document document(text, XP_XML_COMMENT | XP_XML_PI);
    if (!document.parsed) return "";
    xpxt_unescape(&document.tree);
    return names_and_text(outline::of(document.tree.root));
}

std::string &line_of(void *data) { return *static_cast<std::string *>(data); }

/// The same by what expat reports.
std::string expat_reading(const std::string &text) {
    std::string line;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &line);
    const auto on_start = [](void *data, const char *name, const char **pairs) {
        outline::attributes values;
        for (; *pairs; pairs += 2) values.insert(std::string(pairs[0]) + '=' + pairs[1]);
        line_of(data) += name + outline::in_braces(values) + '[';
    };
    XML_SetElementHandler(parser, on_start, [](void *data, const char *) { line_of(data) += ']'; });
    XML_SetCharacterDataHandler(parser, [](void *data, const char *bytes, int length) {
        line_of(data) += std::string_view(bytes, static_cast<size_t>(length));
    });
    const bool read = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return read ? names_and_text(line) : "";
}

bool are_alike(const std::string &text) { return own_reading(text) == expat_reading(text); }

// What makes the readings of a real file differ, as far as is known.
constexpr char differences[] =
    "^\xEF\xBB\xBF|^[^>]*encoding=.([^uU]|[uU]([^tTsS]|[tT][fF]-1))|"                                   // encodings
    "^<\\?xml-|"                                                                                        // declarations
    "&#(12[89]|1[3-9][0-9]|[2-9][0-9][0-9]|[0-9]{4}|x[89a-fA-F][0-9a-fA-F]|x[0-9a-fA-F]{3})|&[^lgaq#]|" // references
    "</?[A-Za-z0-9_:.-]*[\x80-\xFF]|"                                                                   // names
    "[^!]--[^>]";                                                                                       // loose markup

TEST(XmlPeers, RealFilesAreReadAsExpatReadsThem) {
    namespace fs = std::filesystem;
    const std::set<std::string> endings = {".xml", ".svg", ".conf", ".policy", ".xsl"};
    regex_t known;
    ASSERT_EQ(regcomp(&known, differences, REG_EXTENDED | REG_NOSUB), 0);
    for (const char *kind : {"fontconfig", "glib-2.0/schemas", "icons", "mime", "polkit-1", "xml", "dbus-1", "gdb",
                             "X11/xkb/rules", "metainfo", "doc"}) {
        int left = 200;
        std::error_code absent;
        for (const auto &entry : fs::recursive_directory_iterator(fs::path("/usr/share") / kind, absent)) {
            if (!endings.contains(entry.path().extension()) || entry.file_size(absent) > 1 << 20) continue;
            std::ifstream file(entry.path());
            std::string text(std::istreambuf_iterator<char>(file), {});
            if (!text.starts_with('<')) continue;
            if (const size_t type = text.find("<!DOCTYPE"); type != std::string::npos) {
                const size_t subset = text.find('[', type), end = text.find('>', type);
                text.erase(type, (subset < end ? text.find("]>", subset) + 2 : end + 1) - type);
            }
            EXPECT_TRUE(are_alike(text) || regexec(&known, text.c_str(), 0, nullptr, 0) == 0) << entry.path();
            if (--left == 0) break;
        }
    }
    regfree(&known);
}

#endif

void expect_reading(const std::string &text, const std::string &outline, bool alike, uint32_t skip_mask = 0) {
    EXPECT_EQ(outline::document(text, skip_mask).outline(), outline) << text;
#ifdef HAVE_EXPAT
    EXPECT_TRUE(skip_mask || are_alike(text) == alike) << text;
#endif
}

TEST(XmlPeers, DocumentsAreReadAsListed) {
    for (const auto &row : documents) expect_reading(row.text, row.outline, !row.difference, row.skip_mask);
    for (const auto &[name, texts] : refused)
        for (std::string text : texts) {
            SCOPED_TRACE(name);
            const size_t stuck = text.find('|');
            expect_reading(text.erase(stuck, 1), '@' + std::to_string(stuck), true);
        }
}

} // namespace
