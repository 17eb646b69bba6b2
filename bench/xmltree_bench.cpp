// Documents parsed and destroyed, attributes looked up, paths followed. What counts is processor time; parsers that
// work in place get a fresh copy of the text each time, which is not counted. `node` is the memory of a tree divided by
// its elements, texts and attributes.
#include <benchmark/benchmark.h>

#include <malloc.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "vorncore/xml/xpath.h"
#ifdef HAVE_LIBXML2
#include <libxml/parser.h>
#include <libxml/xpath.h>
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
const char *const attribute_names[] = {"id", "name", "price", "currency", "stock", "category", "updated", "ref"};
constexpr char path[] = "root/record/city/text()";

std::string word(size_t shortest, size_t longest) {
    std::string text(shortest + generator() % (longest - shortest + 1), ' ');
    for (char &c : text) c = static_cast<char>('a' + generator() % 26);
    return text;
}

std::string attributes() {
    std::string text = "<item";
    for (const char *name : attribute_names) text += std::string(" ") + name + "=\"" + word(2, 14) + '"';
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

std::string generated(std::string (*make)(), size_t size) {
    std::string text("<?xml version=\"1.0\"?>\n<root>\n");
    while (text.size() < size) text += make();
    return text.append("</root>\n");
}

bool accepted(std::string text) {
    xp_xmltree tree;
    if (!xp_init_xmltree(&tree, text.data(), 0, nullptr)) return false;
    xp_close_xmltree(&tree);
    return true;
}

/// Files of this machine that every parser takes; of those with a document type, what is behind it.
std::vector<std::string> real_files(const char *kind) {
    std::vector<std::string> texts;
    std::error_code absent;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(kind, absent)) {
        const std::string end = entry.path().extension();
        if ((end != ".xml" && end != ".svg") || !entry.is_regular_file() || texts.size() == 500) continue;
        std::ifstream file(entry.path());
        std::string text(std::istreambuf_iterator<char>(file), {});
        if (const size_t type = text.find("<!DOCTYPE"); type != std::string::npos) {
            const size_t subset = text.find("]>", type), close = text.find('>', type);
            text.erase(0, text.find('[', type) < close ? subset + 2 : close + 1);
        }
        if (text.find("& ") == std::string::npos && accepted(text)) texts.push_back(text);
    }
    return texts;
}

struct shape {
    std::string name;
    std::vector<std::string> texts;
};

const std::vector<shape> &shapes() {
    static const std::vector<shape> all = [] {
        std::vector<shape> made;
        const std::pair<const char *, std::string (*)()> kinds[] = {
            {"attributes", attributes}, {"text", paragraph}, {"deep", nest}, {"records", record}};
        for (const auto &[name, make] : kinds)
            for (const size_t size : {1, 10})
                made.push_back({name + ("_" + std::to_string(size)) + "_MiB", {generated(make, size << 20)}});
        for (const char *kind : {"icons", "mime", "xml"})
            made.push_back({std::string("files_") + kind, real_files((std::string("/usr/share/") + kind).c_str())});
        return made;
    }();
    return all;
}

struct vorncore {
    static constexpr const char *name = "vorncore";
    xp_xmltree tree{};
    bool parse(char *text, size_t) { return xp_init_xmltree(&tree, text, 0, nullptr); }
    ~vorncore() { xp_close_xmltree(&tree); }
    static size_t count(const xp_xmlnode *node) {
        size_t all = 1 + (node->attributes ? static_cast<size_t>(node->attributes->count) : 0);
        for (int i = 0; i < xpxn_child_count(node); i++) all += count(xpxn_child(node, i));
        return all;
    }
    size_t look_up() {
        size_t length = 0;
        for (int i = 0; i < xpxn_child_count(tree.root); i++)
            for (const char *attribute : attribute_names)
                length +=
                    strlen(static_cast<xp_xmlattr *>(xpht_get(xpxn_child(tree.root, i)->attributes, attribute))->value);
        return length;
    }
    size_t follow() {
        xp_array found;
        xp_init_array(&found, 16, nullptr, nullptr);
        const int count = xpxn_select(xpxt_node(&tree), path, &found);
        xp_close_array(&found);
        return static_cast<size_t>(count);
    }
};

#ifdef HAVE_LIBXML2
struct libxml2 {
    static constexpr const char *name = "libxml2";
    xmlDoc *tree = nullptr;
    bool parse(char *text, size_t size) {
        tree = xmlReadMemory(text, static_cast<int>(size), nullptr, nullptr, XML_PARSE_HUGE);
        return tree;
    }
    ~libxml2() { xmlFreeDoc(tree); }
    size_t look_up() {
        size_t length = 0;
        for (xmlNode *item = xmlDocGetRootElement(tree)->children; item; item = item->next)
            for (const char *attribute : attribute_names)
                if (item->type == XML_ELEMENT_NODE)
                    length += strlen(reinterpret_cast<const char *>(
                        xmlHasProp(item, reinterpret_cast<const xmlChar *>(attribute))->children->content));
        return length;
    }
    size_t follow() {
        xmlXPathContext *context = xmlXPathNewContext(tree);
        context->node = reinterpret_cast<xmlNode *>(tree);
        xmlXPathObject *found = xmlXPathEvalExpression(reinterpret_cast<const xmlChar *>(path), context);
        const int count = found->nodesetval->nodeNr;
        xmlXPathFreeObject(found);
        xmlXPathFreeContext(context);
        return static_cast<size_t>(count);
    }
};
#endif

#ifdef HAVE_EXPAT
/// Makes no tree, but counts what it is told of.
struct expat {
    static constexpr const char *name = "expat";
    bool parse(char *text, size_t size) {
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
        return parsed && counts[0];
    }
};
#endif

#ifdef HAVE_PUGIXML
struct pugixml {
    static constexpr const char *name = "pugixml";
    pugi::xml_document tree;
    bool parse(char *text, size_t size) { return tree.load_buffer_inplace(text, size); }
    size_t look_up() {
        size_t length = 0;
        for (const pugi::xml_node item : tree.first_child())
            for (const char *attribute : attribute_names) length += strlen(item.attribute(attribute).value());
        return length;
    }
    size_t follow() { return tree.select_nodes(path).size(); }
};
#endif

#ifdef HAVE_RAPIDXML
struct rapidxml {
    static constexpr const char *name = "rapidxml";
    ::rapidxml::xml_document<> tree;
    bool parse(char *text, size_t) {
        tree.parse<0>(text);
        return tree.first_node();
    }
    size_t look_up() {
        size_t length = 0;
        for (auto *item = tree.first_node()->first_node(); item; item = item->next_sibling())
            for (const char *attribute : attribute_names) length += strlen(item->first_attribute(attribute)->value());
        return length;
    }
};
#endif

double seconds() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

size_t memory_in_use() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

template <class Parser>
double memory_per_node(std::string text) {
    std::string own = text;
    vorncore reference;
    reference.parse(own.data(), own.size());
    const size_t nodes = vorncore::count(reference.tree.root), before = memory_in_use();
    Parser parser;
    parser.parse(text.data(), text.size());
    return static_cast<double>(memory_in_use() - before) / static_cast<double>(nodes);
}

template <class Parser>
void parse(benchmark::State &state, const shape &documents) {
    size_t bytes = 0;
    std::vector<std::string> copies;
    for (auto _ : state) {
        copies = documents.texts;
        const double start = seconds();
        for (std::string &text : copies) {
            Parser parser;
            if (!parser.parse(text.data(), text.size())) state.SkipWithError("refused");
        }
        state.SetIterationTime(seconds() - start);
    }
    for (const std::string &text : documents.texts) bytes += text.size();
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    const auto shorter = [](const std::string &a, const std::string &b) { return a.size() < b.size(); };
    if (bytes)
        state.counters["node"] =
            memory_per_node<Parser>(*std::max_element(documents.texts.begin(), documents.texts.end(), shorter));
}

/// Asks a tree that was made before.
template <class Parser>
void ask(benchmark::State &state, std::string (*make)(), size_t (Parser::*question)()) {
    std::string text = generated(make, 1 << 20);
    Parser parser;
    parser.parse(text.data(), text.size());
    for (auto _ : state) benchmark::DoNotOptimize((parser.*question)());
}

template <class Parser>
void add() {
    const auto named = [](std::string workload) { return workload + '/' + Parser::name; };
    for (const shape &documents : shapes())
        benchmark::RegisterBenchmark(named(documents.name).c_str(), parse<Parser>, documents)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    if constexpr (requires { &Parser::look_up; })
        benchmark::RegisterBenchmark(named("look_up").c_str(), ask<Parser>, attributes, &Parser::look_up);
    if constexpr (requires { &Parser::follow; })
        benchmark::RegisterBenchmark(named("path").c_str(), ask<Parser>, record, &Parser::follow);
}

const bool registered = [] {
    add<vorncore>();
#ifdef HAVE_LIBXML2
    add<libxml2>();
#endif
#ifdef HAVE_EXPAT
    add<expat>();
#endif
#ifdef HAVE_PUGIXML
    add<pugixml>();
#endif
#ifdef HAVE_RAPIDXML
    add<rapidxml>();
#endif
    return true;
}();

} // namespace
