// The one header that an application includes.
#pragma once

#include "Mesh.h"
#include "Point3.h"
#include "Progress.h"
#include "Vector3.h"
#include "ZavBugException.h"
#include "cpuCount.h"
#include "generators.h"
#include "meshOperations.h"
#include "zav_api_functions.h"
#include "zav_api_io.h"
