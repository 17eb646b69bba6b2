/* Reads the configuration file of a server through paths: single settings with a default, and lists. */
#include <stdio.h>
#include <stdlib.h>
#include <vorncore/vorncore.h>

/* The text that a path leads to, an attribute's value say; `otherwise` when it leads nowhere. */
static const char *setting(const xp_xmlnode *from, const char *path, const char *otherwise) {
    const xp_xmlnode *found = xpxn_find(from, path);
    return found ? found->text : otherwise;
}

/* Says where the file is wrong: the lines were found before the parse, which cuts the text up. */
static int complain(const char *file, const xp_lineinfo *lines, int offset) {
    int line = 1;
    while (line < lines->starts.count && (intptr_t)lines->starts.items[line] <= offset) line++;
    printf("%s:%d:%d: not understood\n", file, line, offset - (int)(intptr_t)lines->starts.items[line - 1] + 1);
    return 1;
}

static void print_server(const xp_xmlnode *top) {
    printf("at most %d connections, %d seconds each\n", atoi(setting(top, "server/limits/@connections", "100")),
           atoi(setting(top, "server/limits/@timeout", "30")));

    xp_array found;
    xp_init_array(&found, 8, NULL, NULL);
    xpxn_select(top, "server/listen", &found);
    for (int i = 0; i < found.count; i++) {
        const xp_xmlnode *listen = found.items[i];
        printf("listens on %s port %s%s\n", setting(listen, "@address", "0.0.0.0"), setting(listen, "@port", "80"),
               setting(listen, "@secure", NULL) ? ", secure" : "");
    }

    xpar_clear(&found);
    xpxn_select(top, "server/site", &found);
    for (int i = 0; i < found.count; i++) {
        const xp_xmlnode *site = found.items[i];
        xp_array aliases;
        xp_init_array(&aliases, 8, NULL, NULL);
        xpxn_select(site, "alias/text()", &aliases);
        printf("site %s, \"%s\", in %s:", setting(site, "@name", "?"), setting(site, "title/text()", ""),
               setting(site, "@root", "."));
        for (int k = 0; k < aliases.count; k++) printf(" %s", ((xp_xmlnode *)aliases.items[k])->text);
        printf("\n");
        xp_close_array(&aliases);
    }
    xp_close_array(&found);
}

int main(int arguments, char **argument) {
    if (arguments != 2) return fprintf(stderr, "usage: config FILE\n"), 2;
    xp_respool pool; /* owns the file's text */
    xp_init_respool(&pool);
    xp_filedata file;
    int failed = !xprp_load_file(&pool, argument[1], &file);
    if (!failed) {
        int offset;
        xp_lineinfo lines;
        xp_xmltree tree;
        xp_init_lineinfo(&lines, file.data);
        if (xp_init_xmltree(&tree, file.data, XP_XML_COMMENT, &offset)) {
            xpxt_unescape(&tree);
            print_server(xpxt_node(&tree));
            xp_close_xmltree(&tree);
        } else {
            failed = complain(argument[1], &lines, offset);
        }
        xp_close_lineinfo(&lines);
    }
    xp_close_respool(&pool);
    return failed;
}
