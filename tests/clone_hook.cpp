#include "OKA_Filter/records/convolution.h"
#include "simd/clones.h"

enum JURN_Clone JURN_clone_hook = JURN_CLONE_FASTEST;
thread_local long long JURN_convolution_work = 0;
