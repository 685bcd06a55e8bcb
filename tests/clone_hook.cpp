#include "OKA_Filter/records/convolution.h"
#include "simd/clones.h"

enum JURN_Clone JURN_clone_hook = JURN_best_clone();
thread_local long long JURN_convolution_work = 0;
