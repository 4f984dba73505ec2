#include "state/observer.h"

const Observer *netsift_observer;
