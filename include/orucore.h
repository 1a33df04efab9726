/* liborucore: everything the library exports. */
#ifndef ORUCORE_H
#define ORUCORE_H

#include "orucore_version.h"
#include "oru_core.h"
#include "oru_matrix.h"
#include "oru_cg.h"
#include "oru_cg_net.h"
#include "oru_conv.h"
#include "oru_fixed.h"
#include "oru_image.h"
#include "oru_pose.h"
#include "oru_tracking.h"
#include "oru_detector.h"

#endif /* ORUCORE_H */
