/* A program outside the tree, built against an installed library, that loads an installed driver. */
#include <stdio.h>
#include <vorncore/vorncore.h>
#include <vorncore_nulldb.h>

static int words_wrong(void) {
    char line[] = "an, installed, library";
    xp_array words;
    xp_init_array(&words, 4, NULL, NULL);
    xpar_tokenize(&words, line, ",", XP_TOKENIZE_TRIM);
    printf("%s: %d words\n", vorncore_name, words.count);
    const int wrong = words.count != 3;
    xp_close_array(&words);
    return wrong;
}

static int driver_wrong(void) {
    xpdbi_modinit(XP_DBI_NULLDB);
    xp_nulldb *db = (xp_nulldb *)xp_create_dbi(XP_DBI_NULLDB);
    if (!db) return 1;
    const int connected = db->connect(db, "");
    db->destroy(db);
    xpdbi_modfini();
    return !connected;
}

int main(void) { return words_wrong() || driver_wrong(); }
