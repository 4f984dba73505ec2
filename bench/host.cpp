/* The two symbols that the library takes from its host. */
#include "state/settings.h"

char popupblocker[] = "";
int32_t popuplen = 0;
