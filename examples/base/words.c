/* Counts the words of a text: a hash table finds them, an array sorts them. */
#include <stdio.h>
#include <string.h>
#include <vorncore/vorncore.h>

static int most_frequent_first(const void *a, const void *b) {
    const xp_pair *x = a, *y = b;
    if (x->value != y->value) return (intptr_t)x->value > (intptr_t)y->value ? -1 : 1;
    return strcmp(x->key, y->key);
}
static int collect(void *words, xp_pair *word) {
    xpar_add(words, word);
    return 1;
}

int main(void) {
    char text[] = "the cat sat on the mat and the dog sat on the cat";
    xp_array words;
    xp_hashtable counts;
    xp_init_array(&words, 16, NULL, NULL);
    xp_init_hashtable(&counts, xp_getprime_over(100), NULL, NULL, NULL, NULL, NULL, NULL);

    xpar_tokenize(&words, text, " ", XP_TOKENIZE_SKIP_EMPTY);
    for (int i = 0; i < words.count; i++) {
        xp_pair *word = xpht_new_pair(&counts, words.items[i], NULL, NULL);
        word->value = (void *)((intptr_t)word->value + 1);
    }

    xpar_clear(&words);
    xpht_enumerate(&counts, collect, &words);
    xpar_sort(&words, most_frequent_first);
    for (int i = 0; i < words.count; i++) {
        const xp_pair *word = words.items[i];
        xp_fprintf(stdout, "%3d %s\n", (int)(intptr_t)word->value, (char *)word->key);
    }
    xp_close_hashtable(&counts);
    xp_close_array(&words);
    return 0;
}
