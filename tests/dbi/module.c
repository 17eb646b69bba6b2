/* A driver module for the loader to find, with the entry points that it is compiled with. */
#include "vorncore/dbi/dbi.h"

xp_dbi connection;
int level = -1;

#ifdef CREATOR
xp_dbi *CREATOR(void) { return &connection; }
#endif
#ifdef SETTER
void SETTER(int new_level) { level = new_level; }
#endif
