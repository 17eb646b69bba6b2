// A document parsed and destroyed. What counts is the processor time of that; parsers that work in place get a fresh
// copy of the text each time, which is not counted.
#include <benchmark/benchmark.h>

#include <string.h>
#include <time.h>

#include <random>
#include <string>
#include <vector>

#include "vorncore/xml/xmltree.h"
#ifdef HAVE_LIBXML2
#include <libxml/parser.h>
#endif
#ifdef HAVE_EXPAT
#include <expat.h>
#endif
#ifdef HAVE_PUGIXML
#include <pugixml.hpp>
#endif
#if __has_include(<rapidxml/rapidxml.hpp>)
#define HAVE_RAPIDXML
#include <rapidxml/rapidxml.hpp>
#endif

namespace {

std::mt19937 generator(1);

std::string word(size_t shortest, size_t longest) {
    std::string text(shortest + generator() % (longest - shortest + 1), ' ');
    for (char &c : text) c = static_cast<char>('a' + generator() % 26);
    return text;
}

std::string attributes() {
    std::string text = "<item";
    for (const char *name : {"id", "name", "price", "currency", "stock", "category", "updated", "ref"})
        text += std::string(" ") + name + "=\"" + word(2, 14) + '"';
    return text + "/>\n";
}

std::string paragraph() {
    std::string text = "<p>";
    for (int i = 0; i < 120; i++) text += word(2, 10) + (i % 12 == 11 ? '\n' : ' ');
    return text + "</p>\n";
}

std::string nest() {
    const char *const names[] = {"section", "list", "item", "block", "entry", "group"};
    std::string text, end;
    for (int i = 0; i < 1000; i++) {
        const std::string name = names[generator() % std::size(names)];
        text += '<' + name + '>';
        end.insert(0, "</" + name + '>');
    }
    return text + word(3, 10) + end + '\n';
}

std::string record() {
    std::string text = "<record id=\"" + word(6, 6) + "\">";
    for (const char *name : {"name", "street", "city", "phone", "mail", "note"})
        text += std::string("<") + name + '>' + word(4, 30) + "</" + name + '>';
    return text + "</record>\n";
}

const struct {
    const char *name;
    std::string (*make)();
} shapes[] = {{"attributes", attributes}, {"text", paragraph}, {"deep", nest}, {"records", record}};

const std::string &document(size_t shape, size_t size) {
    static std::string texts[4];
    std::string &text = texts[shape];
    if (text.size() < size || text.size() > size + size / 4) {
        text = "<?xml version=\"1.0\"?>\n<root>\n";
        while (text.size() < size) text += shapes[shape].make();
        text += "</root>\n";
    }
    return text;
}

/// `parse(text, size)` gets a text that it may write to.
template <class Parse>
void run(benchmark::State &state, size_t shape, Parse parse) {
    const auto now = [] {
        timespec time;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    const std::string &text = document(shape, static_cast<size_t>(state.range(0)) << 20);
    std::string copy;
    for (auto _ : state) {
        copy = text;
        const double start = now();
        if (!parse(copy.data(), copy.size())) state.SkipWithError("refused");
        state.SetIterationTime(now() - start);
    }
    state.SetBytesProcessed(static_cast<int64_t>(text.size()) * state.iterations());
}

bool vorncore(char *text, size_t) {
    xp_xmltree tree;
    if (!xp_init_xmltree(&tree, text, 0, nullptr)) return false;
    xp_close_xmltree(&tree);
    return true;
}

#ifdef HAVE_LIBXML2
bool libxml2(char *text, size_t size) {
    xmlDoc *const document = xmlReadMemory(text, static_cast<int>(size), nullptr, nullptr, XML_PARSE_HUGE);
    xmlFreeDoc(document);
    return document;
}
#endif

#ifdef HAVE_EXPAT
/// Counts what it is told of.
bool expat(char *text, size_t size) {
    size_t counts[2] = {};
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, counts);
    XML_SetElementHandler(
        parser, [](void *to, const XML_Char *, const XML_Char **) { static_cast<size_t *>(to)[0]++; },
        [](void *, const XML_Char *) {});
    XML_SetCharacterDataHandler(parser, [](void *to, const XML_Char *, int length) {
        static_cast<size_t *>(to)[1] += static_cast<size_t>(length);
    });
    const bool parsed = XML_Parse(parser, text, static_cast<int>(size), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return parsed && counts[0] && counts[1];
}
#endif

#ifdef HAVE_PUGIXML
bool pugixml(char *text, size_t size) {
    pugi::xml_document document;
    return document.load_buffer_inplace(text, size);
}
#endif

#ifdef HAVE_RAPIDXML
bool rapidxml(char *text, size_t) {
    ::rapidxml::xml_document<> document;
    document.parse<0>(text);
    return document.first_node();
}
#endif

const struct {
    const char *name;
    bool (*parse)(char *, size_t);
} parsers[] = {
    {"vorncore", vorncore},
#ifdef HAVE_LIBXML2
    {"libxml2", libxml2},
#endif
#ifdef HAVE_EXPAT
    {"expat", expat},
#endif
#ifdef HAVE_PUGIXML
    {"pugixml", pugixml},
#endif
#ifdef HAVE_RAPIDXML
    {"rapidxml", rapidxml},
#endif
};

const bool registered = [] {
    for (size_t shape = 0; shape < std::size(shapes); shape++)
        for (const auto &parser : parsers)
            benchmark::RegisterBenchmark(
                (std::string(shapes[shape].name) + '/' + parser.name).c_str(),
                [shape, parse = parser.parse](benchmark::State &state) { run(state, shape, parse); })
                ->Arg(1)
                ->Arg(10)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
