#include "simd/clones.h"

enum JURN_Clone JURN_clone_hook = JURN_best_clone();
