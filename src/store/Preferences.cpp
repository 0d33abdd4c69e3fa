#include "Preferences.h"
