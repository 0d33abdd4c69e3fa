#include "GlucoseSnapshot.h"
