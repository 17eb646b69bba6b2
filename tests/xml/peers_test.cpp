// What is read of a document: by this library, and by expat where that is installed.
#include <regex.h>

#include <filesystem>
#include <fstream>

#include "xml/outline.h"
#ifdef HAVE_EXPAT
#include <expat.h>
#endif

namespace {

// What the parsers differ in on purpose; docs/compatibility.md explains each.
constexpr const char *document_types = "document types", *encodings = "encodings", *names = "names",
                     *declarations = "declarations", *references = "references", *white_space = "white space",
                     *loose_markup = "loose markup";

const struct {
    const char *text;
    const char *outline; // or the offset of the error
    const char *difference = nullptr;
} documents[] = {
    // elements
    {"<a/>", "a"},
    {" \t\r\n<a > </a > \n", "a"},
    {"\v\f<a/>", "a", white_space},
    {"<a><b/><c></c><b><d/></b></a>", "a[b c b[d]]"},
    {"<x:a-b.c_9/>", "x:a-b.c_9"},
    {"<9/>", "9", names},
    {"<a", "@2"},
    {"<a>", "@3"},
    {"<a><b></a>", "@7"},
    {"<a></ab>", "@4"},
    {"< a/>", "@1"},
    {"<a/ >", "@2"},
    {"<\xC3\xA4/>", "@1", names},
    {"<a\xC3\xA4/>", "@2", names},
    // the top level
    {"", "@0"},
    {"<!--c-->", "@8"},
    {"<a/><b/>", "@8"},
    {"<a/><", "@5"},
    {"<a/><b", "@6"},
    {"<a/>x", "@4"},
    {"x<a/>", "@1"},
    {"<a/><![CDATA[x]]>", "@17"},
    {"<!--1--><?q 2?><a/><?q 3?><!--4-->", "#1# %q 2% a %q 3% #4#"},
    {"<!DOCTYPE a><a/>", "@1", document_types},
    {"\xEF\xBB\xBF<a/>", "@3", encodings},
    // texts
    {"<a>x</a>", "a['x']"},
    {"<a> x y \n</a>", "a['x y \n']"},
    {"<a>x<b/> y <c/></a>", "a['x' b 'y ' c]"},
    {"<a>\r\nx\r\ny</a>", "a['x\r\ny']"},
    {"<a>x > y \"'</a>", "a['x > y \"'']"},
    {"<a>x & y</a>", "a['x & y']", loose_markup},
    {"<a>]]></a>", "a[']]>']", loose_markup},
    {"<a>\xC3\xA4</a>", "a['\xC3\xA4']"},
    {"<a>\xC3</a>", "a['\xC3']", encodings},
    {"<a>&lt;&#65;&#x42;&amp;lt;&apos;&quot;</a>", "a['&lt;&#65;&#x42;&amp;lt;&apos;&quot;']"},
    {"<a>&#955;</a>", "a['&#955;']", references},
    {"<a>&nbsp;</a>", "a['&nbsp;']", references},
    {"<a>&#10;x</a>", "a['&#10;x']"},
    {"<a>x", "@3"},
    // sections
    {"<a><!-- - -> --></a>", "a[# - -> #]"},
    {"<a>x<!---->y</a>", "a['x' ## 'y']"},
    {"<a><!-- -- --></a>", "a[# -- #]", loose_markup},
    {"<a><!--></a>", "@7"},
    {"<a> <![CDATA[ <b>&lt;]]]> </a>", "a[! <b>&lt;]!]"},
    {"<a><![CDATA[]]></a>", "a[!!]"},
    {"<a><![CDATA[x]></a>", "@12"},
    {"<a><?p <x> ? > q?></a>", "a[%p <x> ? > q%]"},
    {"<a><?\?></a>", "a[%%]", loose_markup},
    {"<a><?p></a>", "@5"},
    // attributes
    {"<a b='1'/>", "a{b=1}"},
    {"<a b='1' c=\"2\"></a>", "a{b=1 c=2}"},
    {"<a b='1'c='2'/>", "a{b=1 c=2}", white_space},
    {"<a\tb\n = \r'\"' >x</a>", "a{b=\"}['x']"},
    {"<a b=''/>", "a{b=}"},
    {"<a b='&lt;>'/>", "a{b=&lt;>}"},
    {"<a b='<'/>", "a{b=<}", loose_markup},
    {"<a b=' 1\n2 '/>", "a{b= 1\n2 }"},
    {"<a x:b='1' xmlns:x='X' xmlns='Y'/>", "a{x:b=1 xmlns=Y xmlns:x=X}"},
    {"<a b/>", "a", loose_markup},
    {"<a b>x</a>", "a['x']", loose_markup},
    {"<a b />", "@4"},
    {"<a b c='1'/>", "@4"},
    {"<a b=1/>", "@5"},
    {"<a b='1\"/>", "@6"},
    {"<a b='1' b='2'/>", "@14"},
    {"<a b='1'x/>", "a{b=1}", loose_markup},
    // the declaration
    {"<?xml version='1.0' encoding=\"utf-8\" ?><a/>", "xml{encoding=utf-8 version=1.0} a"},
    {"<?xml version='1.0' encoding='x'?><a/>", "xml{encoding=x version=1.0} a", encodings},
    {" <?xml ?><a/>", "xml{} a", declarations},
    {"<?xml v='1'w='2'?>\n<a/>", "xml{v=1 w=2} a", declarations},
    {"<?xml?><a/>", "@5"},
    {"<?xml-stylesheet href='x'?><a/>", "@5", declarations},
    {"<?xml v='1' v='2'?><a/>", "@17"},
    {"<?xml v='1'><a/>", "@11"},
    {"<!--c--><?xml v='1'?><a/>", "#c# %xml v='1'% a", declarations},
};

TEST(XmlPeers, DocumentsAreReadAsListed) {
    for (const auto &d : documents) EXPECT_EQ(outline::of_text(d.text), d.outline) << d.text;
}

#ifdef HAVE_EXPAT

/// Leaves out what a parser may treat in either way: line ends, white space in values and around texts.
struct plain_writer : outline::writer {
    static std::string one_space(std::string text) {
        for (size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
        for (char &c : text) c = strchr("\t\r\n", c) ? ' ' : c;
        return text;
    }
    void start(const std::string &name, outline::attributes values) {
        for (auto &value : values) value.second = one_space(value.second);
        writer::start(name, values);
    }
    void leaf(char quote, std::string text) {
        text = one_space(text);
        if (quote == '\'') text.erase(0, text.find_first_not_of(' '));
        if (quote != '\'' || !text.empty()) writer::leaf(quote, text);
    }
};

/// The outline of a tree with its references replaced; "" when the text is refused.
std::string own_reading(std::string text) {
    xp_xmltree tree;
    if (!xp_init_xmltree(&tree, text.data(), 0, nullptr)) return "";
    xpxt_unescape(&tree);
    plain_writer to;
    outline::write(to, xpxt_node(&tree));
    xp_close_xmltree(&tree);
    return to.line;
}

struct expat_reader {
    plain_writer to;
    std::string text;
    bool in_cdata = false;

    void flush() {
        if (in_cdata || !text.empty()) to.leaf(in_cdata ? '!' : '\'', text);
        text.clear();
    }
    void set_cdata(bool now) { flush(), in_cdata = now; }
    static expat_reader &self(void *data) { return *static_cast<expat_reader *>(data); }

    std::string read(const std::string &document) {
        XML_Parser parser = XML_ParserCreate(nullptr);
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser,
            [](void *data, const char *name, const char **pairs) {
                outline::attributes values;
                for (; *pairs; pairs += 2) values[pairs[0]] = pairs[1];
                self(data).flush(), self(data).to.start(name, values);
            },
            [](void *data, const char *) { self(data).flush(), self(data).to.end(); });
        XML_SetCharacterDataHandler(parser, [](void *data, const char *bytes, int length) {
            self(data).text.append(bytes, static_cast<size_t>(length));
        });
        XML_SetCdataSectionHandler(
            parser, [](void *data) { self(data).set_cdata(true); }, [](void *data) { self(data).set_cdata(false); });
        XML_SetCommentHandler(
            parser, [](void *data, const char *comment) { self(data).flush(), self(data).to.leaf('#', comment); });
        XML_SetProcessingInstructionHandler(parser, [](void *data, const char *target, const char *rest) {
            self(data).flush(), self(data).to.leaf('%', std::string(target) + (*rest ? " " : "") + rest);
        });
        const bool accepted = XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
        XML_ParserFree(parser);
        return accepted ? to.line : "";
    }
};

TEST(XmlPeers, ExpatReadsTheSameButForKnownDifferences) {
    for (const auto &d : documents) {
        const std::string own = own_reading(d.text), peer = expat_reader().read(d.text);
        EXPECT_EQ(own == peer, d.difference == nullptr) << d.text << "\n" << own << "\n" << peer;
    }
}

/// Takes out the document type, which would be refused.
void remove_document_type(std::string &text) {
    const size_t begin = text.find("<!DOCTYPE");
    if (begin == std::string::npos) return;
    const size_t subset = text.find('[', begin), end = text.find('>', begin);
    text.erase(begin, (subset < end ? text.find("]>", subset) + 2 : end + 1) - begin);
}

/// What may make the readings of a real file differ; null: nothing that is known.
const char *known_difference(const std::string &text) {
    const struct {
        const char *pattern, *difference;
    } signs[] = {
        {"^\xEF\xBB\xBF|^[^>]*encoding=.([^uU]|[uU]([^tTsS]|[tT][fF]-1))", encodings},
        {"^<\\?xml-", declarations},
        {"&#(12[89]|1[3-9][0-9]|[2-9][0-9][0-9]|[0-9]{4}|x[89a-fA-F][0-9a-fA-F]|x[0-9a-fA-F]{3})", references},
        {"&[^lgaq#]", references},
        {"</?[A-Za-z0-9_:.-]*[\x80-\xFF]", names},
        {"[^!]--[^>]", loose_markup},
    };
    for (const auto &sign : signs) {
        regex_t compiled;
        EXPECT_EQ(regcomp(&compiled, sign.pattern, REG_EXTENDED | REG_NOSUB), 0) << sign.pattern;
        const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
        regfree(&compiled);
        if (found) return sign.difference;
    }
    return nullptr;
}

TEST(XmlPeers, RealFilesAreReadAsExpatReadsThem) {
    namespace fs = std::filesystem;
    for (const char *kind : {"fontconfig", "glib-2.0/schemas", "icons", "mime", "polkit-1", "xml", "dbus-1", "gdb",
                             "X11/xkb/rules", "metainfo", "doc"}) {
        int compared = 0, alike = 0;
        std::error_code absent;
        for (const auto &entry : fs::recursive_directory_iterator(fs::path("/usr/share") / kind, absent)) {
            const std::string end = entry.path().extension();
            if (end != ".xml" && end != ".svg" && end != ".conf" && end != ".policy" && end != ".xsl") continue;
            if (!entry.is_regular_file() || entry.file_size() > 1 << 20) continue;
            if (compared == 200) break;
            std::ifstream file(entry.path());
            std::string text(std::istreambuf_iterator<char>(file), {});
            if (!text.starts_with('<')) continue;
            remove_document_type(text);
            const std::string own = own_reading(text), peer = expat_reader().read(text);
            compared++;
            alike += !own.empty() && own == peer;
            const bool explained = own == peer || known_difference(text);
            EXPECT_TRUE(explained) << entry.path() << "\n" << own.substr(0, 300) << "\n" << peer;
        }
        printf("%s: %d of %d files are read alike\n", kind, alike, compared);
    }
}

#else

TEST(XmlPeers, ExpatReadsTheSameButForKnownDifferences) { GTEST_SKIP() << "needs expat"; }

#endif

} // namespace
