/* A program outside the tree, built against an installed library. */
#include <stdio.h>
#include <vorncore/vorncore.h>

int main(void) {
    char line[] = "an, installed, library";
    xp_array words;
    xp_init_array(&words, 4, NULL, NULL);
    xpar_tokenize(&words, line, ",", XP_TOKENIZE_TRIM);
    printf("%s: %d words\n", vorncore_name, words.count);
    const int wrong = words.count != 3;
    xp_close_array(&words);
    return wrong;
}
