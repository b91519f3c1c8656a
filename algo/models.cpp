// Model table: one entry per arm model type, data only.
//
// DH rows are modified (Craig) Denavit-Hartenberg, metres and radians; the
// sensor variants 0, 1, 2 differ only in the flange distance (the last d,
// lengthened by 0 m, 0.008 m and 0.0285 m) and the last link's dynamics, so
// each is written once and the variants are expanded. Joint limits in degrees,
// speeds in degrees/s, accelerations in degrees/s^2. Entries marked nominal
// carry a geometry designed for this library, not measured product data;
// the link dynamics of every entry are nominal (each link a solid cylinder
// about its own z axis, per variant the sensor's mass added to the last link).
#include "algo/models.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

constexpr float k_half_pi = 1.57079632679489662f;

// One model as written here: the sensor variants share everything but the
// flange distance (the last d) and the last link's dynamics.
struct model_source {
    int type;
    const char *name;
    int dof;
    bool nominal;
    dh_table dh; // the last d is taken from flange_d
    float flange_d[3];
    float max_pos_deg[7];
    float min_pos_deg[7];
    float max_speed_deg[7];
    float max_acc_deg[7];
    float direction[7];
    float tcp_config[4];
    link_dynamics links[6];  // the links before the flange, every variant
    link_dynamics flange[3]; // the last link per sensor variant
};

// clang-format off
const model_source model_sources[] = {
    // KIVO (type 0). Geometry, limits, speeds and TCP configuration are product data; the link dynamics are nominal.
    {0, "KIVO", 6, false,
     {{0.2405f, 0.0f, 0.0f, 0.21f, 0.0f, 0.144f},
      {0.0f, 0.0f, 0.256f, 0.0f, 0.0f, 0.0f},
      {0.0f, k_half_pi, 0.0f, k_half_pi, -k_half_pi, k_half_pi},
      {0.0f, k_half_pi, k_half_pi, 0.0f, 0.0f, 0.0f}},
     {0.144f, 0.152f, 0.1725f}, // flange d per sensor variant
     {178.0f, 130.0f, 135.0f, 178.0f, 128.0f, 360.0f}, // max position
     {-178.0f, -130.0f, -135.0f, -178.0f, -128.0f, -360.0f}, // min position
     {180.0f, 180.0f, 225.0f, 225.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f}, // joint directions
     {0.25f, 1.6f, 0.6f, 4.0f}, // tcp configuration
     {
        {{0.00567313f, 0.0f, 0.0f, 0.00567313f, 0.0f, 0.00438625f, 0.0f, 0.0f, -0.06f, 2.9f}},
        {{0.0162717f, 0.0f, 0.0f, 0.0162717f, 0.0f, 0.00325f, 0.0f, 0.0f, -0.13f, 2.6f}},
        {{0.0016075f, 0.0f, 0.0f, 0.0016075f, 0.0f, 0.001215f, 0.0f, 0.0f, -0.05f, 1.2f}},
        {{0.00427875f, 0.0f, 0.0f, 0.00427875f, 0.0f, 0.00084f, 0.0f, 0.0f, -0.105f, 1.05f}},
        {{0.000849617f, 0.0f, 0.0f, 0.000849617f, 0.0f, 0.0006859f, 0.0f, 0.0f, -0.04f, 0.95f}},
     },
     {
        {{0.000109896f, 0.0f, 0.0f, 0.000109896f, 0.0f, 0.000153125f, 0.0f, 0.0f, -0.02f, 0.25f}},
        {{0.000249125f, 0.0f, 0.0f, 0.000249125f, 0.0f, 0.00030625f, 0.0f, 0.0f, -0.024f, 0.5f}},
        {{0.000557817f, 0.0f, 0.0f, 0.000557817f, 0.0f, 0.00049f, 0.0f, 0.0f, -0.03425f, 0.8f}},
     }},
    // LUNE (type 1). Spherical shoulder, elbow, spherical wrist.
    {1, "LUNE", 7, true,
     {{0.2405f, 0.0f, 0.29f, 0.0f, 0.28f, 0.0f, 0.12f},
      {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f},
      {0.0f, -k_half_pi, k_half_pi, k_half_pi, -k_half_pi, -k_half_pi, k_half_pi},
      {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f}},
     {0.12f, 0.128f, 0.1485f}, // flange d per sensor variant
     {178.0f, 130.0f, 178.0f, 135.0f, 178.0f, 128.0f, 360.0f}, // max position
     {-178.0f, -130.0f, -178.0f, -135.0f, -178.0f, -128.0f, -360.0f}, // min position
     {180.0f, 180.0f, 225.0f, 225.0f, 225.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f}, // joint directions
     {0.25f, 1.6f, 0.6f, 4.0f}, // tcp configuration
     {
        {{0.00672f, 0.0f, 0.0f, 0.00672f, 0.0f, 0.00576f, 0.0f, 0.0f, -0.06f, 3.2f}},
        {{0.00468813f, 0.0f, 0.0f, 0.00468813f, 0.0f, 0.0047096f, 0.0f, 0.0f, -0.05f, 2.8f}},
        {{0.0161371f, 0.0f, 0.0f, 0.0161371f, 0.0f, 0.0028392f, 0.0f, 0.0f, -0.145f, 2.1f}},
        {{0.00225493f, 0.0f, 0.0f, 0.00225493f, 0.0f, 0.0018432f, 0.0f, 0.0f, -0.05f, 1.6f}},
        {{0.00915146f, 0.0f, 0.0f, 0.00915146f, 0.0f, 0.00131625f, 0.0f, 0.0f, -0.14f, 1.3f}},
        {{0.00084f, 0.0f, 0.0f, 0.00084f, 0.0f, 0.00072f, 0.0f, 0.0f, -0.04f, 0.9f}},
     },
     {
        {{0.000131875f, 0.0f, 0.0f, 0.000131875f, 0.0f, 0.00018375f, 0.0f, 0.0f, -0.02f, 0.3f}},
        {{0.000274038f, 0.0f, 0.0f, 0.000274038f, 0.0f, 0.000336875f, 0.0f, 0.0f, -0.024f, 0.55f}},
        {{0.00059268f, 0.0f, 0.0f, 0.00059268f, 0.0f, 0.000520625f, 0.0f, 0.0f, -0.03425f, 0.85f}},
     }},
    // MARO II (type 3). Shoulder and elbow offsets; limits and directions are product data.
    {3, "MARO II", 6, true,
     {{0.24f, 0.0f, 0.0f, 0.28f, 0.0f, 0.115f},
      {0.0f, 0.05f, 0.3f, 0.035f, 0.0f, 0.0f},
      {0.0f, k_half_pi, 0.0f, k_half_pi, -k_half_pi, k_half_pi},
      {0.0f, k_half_pi, k_half_pi, 0.0f, 0.0f, 0.0f}},
     {0.115f, 0.123f, 0.1435f}, // flange d per sensor variant
     {178.0f, 178.0f, 145.0f, 178.0f, 178.0f, 360.0f}, // max position
     {-178.0f, -178.0f, -178.0f, -178.0f, -178.0f, -360.0f}, // min position
     {180.0f, 180.0f, 225.0f, 225.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, -1.0f, 1.0f, 1.0f, 1.0f, 1.0f}, // joint directions
     {0.25f, 1.6f, 0.6f, 4.0f}, // tcp configuration
     {
        {{0.0081225f, 0.0f, 0.0f, 0.0081225f, 0.0f, 0.007605f, 0.0f, 0.0f, -0.06f, 3.6f}},
        {{0.03444f, 0.0f, 0.0f, 0.03444f, 0.0f, 0.00738f, 0.0f, 0.0f, -0.15f, 4.1f}},
        {{0.00320833f, 0.0f, 0.0f, 0.00320833f, 0.0f, 0.00275f, 0.0f, 0.0f, -0.05f, 2.2f}},
        {{0.00985542f, 0.0f, 0.0f, 0.00985542f, 0.0f, 0.0014175f, 0.0f, 0.0f, -0.14f, 1.4f}},
        {{0.00084f, 0.0f, 0.0f, 0.00084f, 0.0f, 0.00072f, 0.0f, 0.0f, -0.04f, 0.9f}},
     },
     {
        {{0.000131875f, 0.0f, 0.0f, 0.000131875f, 0.0f, 0.00018375f, 0.0f, 0.0f, -0.02f, 0.3f}},
        {{0.000274038f, 0.0f, 0.0f, 0.000274038f, 0.0f, 0.000336875f, 0.0f, 0.0f, -0.024f, 0.55f}},
        {{0.00059268f, 0.0f, 0.0f, 0.00059268f, 0.0f, 0.000520625f, 0.0f, 0.0f, -0.03425f, 0.85f}},
     }},
    // MARO III (type 4). Larger MARO geometry; limits and directions are product data.
    {4, "MARO III", 6, true,
     {{0.27f, 0.0f, 0.0f, 0.33f, 0.0f, 0.125f},
      {0.0f, 0.07f, 0.36f, 0.04f, 0.0f, 0.0f},
      {0.0f, k_half_pi, 0.0f, k_half_pi, -k_half_pi, k_half_pi},
      {0.0f, k_half_pi, k_half_pi, 0.0f, 0.0f, 0.0f}},
     {0.125f, 0.133f, 0.1535f}, // flange d per sensor variant
     {178.0f, 178.0f, 145.0f, 178.0f, 178.0f, 360.0f}, // max position
     {-178.0f, -178.0f, -178.0f, -178.0f, -178.0f, -360.0f}, // min position
     {180.0f, 180.0f, 225.0f, 225.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, -1.0f, 1.0f, 1.0f, 1.0f, 1.0f}, // joint directions
     {0.3f, 1.8f, 0.6f, 4.0f}, // tcp configuration
     {
        {{0.0158058f, 0.0f, 0.0f, 0.0158058f, 0.0f, 0.014625f, 0.0f, 0.0f, -0.07f, 5.2f}},
        {{0.07696f, 0.0f, 0.0f, 0.07696f, 0.0f, 0.01568f, 0.0f, 0.0f, -0.18f, 6.4f}},
        {{0.00651f, 0.0f, 0.0f, 0.00651f, 0.0f, 0.00558f, 0.0f, 0.0f, -0.06f, 3.1f}},
        {{0.0194f, 0.0f, 0.0f, 0.0194f, 0.0f, 0.0025f, 0.0f, 0.0f, -0.165f, 2.0f}},
        {{0.0014175f, 0.0f, 0.0f, 0.0014175f, 0.0f, 0.001215f, 0.0f, 0.0f, -0.045f, 1.2f}},
     },
     {
        {{0.000243333f, 0.0f, 0.0f, 0.000243333f, 0.0f, 0.00032f, 0.0f, 0.0f, -0.025f, 0.4f}},
        {{0.000442217f, 0.0f, 0.0f, 0.000442217f, 0.0f, 0.00052f, 0.0f, 0.0f, -0.029f, 0.65f}},
        {{0.000867845f, 0.0f, 0.0f, 0.000867845f, 0.0f, 0.00076f, 0.0f, 0.0f, -0.03925f, 0.95f}},
     }},
    // NEPAX (type 5). Three parallel axes (2, 3, 4), offset wrist; limits and directions are product data.
    {5, "NEPAX", 6, true,
     {{0.16f, 0.0f, 0.0f, 0.13f, 0.11f, 0.1f},
      {0.0f, 0.0f, 0.42f, 0.38f, 0.0f, 0.0f},
      {0.0f, k_half_pi, 0.0f, 0.0f, k_half_pi, -k_half_pi},
      {0.0f, k_half_pi, 0.0f, k_half_pi, 0.0f, 0.0f}},
     {0.1f, 0.108f, 0.1285f}, // flange d per sensor variant
     {180.0f, 180.0f, 145.0f, 140.0f, 180.0f, 180.0f}, // max position
     {-180.0f, -180.0f, -160.0f, -140.0f, -180.0f, -180.0f}, // min position
     {180.0f, 180.0f, 225.0f, 225.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, -1.0f, 1.0f, -1.0f, 1.0f, 1.0f}, // joint directions
     {0.5f, 2.0f, 0.8f, 4.0f}, // tcp configuration
     {
        {{0.00642458f, 0.0f, 0.0f, 0.00642458f, 0.0f, 0.0071825f, 0.0f, 0.0f, -0.05f, 3.4f}},
        {{0.08112f, 0.0f, 0.0f, 0.08112f, 0.0f, 0.00936f, 0.0f, 0.0f, -0.21f, 5.2f}},
        {{0.0329117f, 0.0f, 0.0f, 0.0329117f, 0.0f, 0.00325f, 0.0f, 0.0f, -0.19f, 2.6f}},
        {{0.00114354f, 0.0f, 0.0f, 0.00114354f, 0.0f, 0.00111375f, 0.0f, 0.0f, -0.04f, 1.1f}},
        {{0.000974333f, 0.0f, 0.0f, 0.000974333f, 0.0f, 0.000882f, 0.0f, 0.0f, -0.04f, 1.0f}},
     },
     {
        {{0.0001483f, 0.0f, 0.0f, 0.0001483f, 0.0f, 0.0002166f, 0.0f, 0.0f, -0.02f, 0.3f}},
        {{0.00030415f, 0.0f, 0.0f, 0.00030415f, 0.0f, 0.0003971f, 0.0f, 0.0f, -0.024f, 0.55f}},
        {{0.000639218f, 0.0f, 0.0f, 0.000639218f, 0.0f, 0.0006137f, 0.0f, 0.0f, -0.03425f, 0.85f}},
     }},
    // NEPAZ (type 6). NEPA form with longer arms; limits, speeds and directions designed here.
    {6, "NEPAZ", 6, true,
     {{0.18f, 0.0f, 0.0f, 0.15f, 0.12f, 0.11f},
      {0.0f, 0.0f, 0.5f, 0.45f, 0.0f, 0.0f},
      {0.0f, k_half_pi, 0.0f, 0.0f, k_half_pi, -k_half_pi},
      {0.0f, k_half_pi, 0.0f, k_half_pi, 0.0f, 0.0f}},
     {0.11f, 0.118f, 0.1385f}, // flange d per sensor variant
     {180.0f, 180.0f, 150.0f, 180.0f, 180.0f, 180.0f}, // max position
     {-180.0f, -180.0f, -150.0f, -180.0f, -180.0f, -180.0f}, // min position
     {150.0f, 150.0f, 180.0f, 180.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, -1.0f, 1.0f, -1.0f, 1.0f, 1.0f}, // joint directions
     {0.5f, 2.0f, 0.8f, 4.0f}, // tcp configuration
     {
        {{0.0119887f, 0.0f, 0.0f, 0.0119887f, 0.0f, 0.0129375f, 0.0f, 0.0f, -0.06f, 4.6f}},
        {{0.172055f, 0.0f, 0.0f, 0.172055f, 0.0f, 0.01911f, 0.0f, 0.0f, -0.25f, 7.8f}},
        {{0.0693225f, 0.0f, 0.0f, 0.0693225f, 0.0f, 0.00702f, 0.0f, 0.0f, -0.225f, 3.9f}},
        {{0.00195f, 0.0f, 0.0f, 0.00195f, 0.0f, 0.001875f, 0.0f, 0.0f, -0.045f, 1.5f}},
        {{0.0016263f, 0.0f, 0.0f, 0.0016263f, 0.0f, 0.0014976f, 0.0f, 0.0f, -0.045f, 1.3f}},
     },
     {
        {{0.000259733f, 0.0f, 0.0f, 0.000259733f, 0.0f, 0.0003528f, 0.0f, 0.0f, -0.025f, 0.4f}},
        {{0.000468867f, 0.0f, 0.0f, 0.000468867f, 0.0f, 0.0005733f, 0.0f, 0.0f, -0.029f, 0.65f}},
        {{0.000906795f, 0.0f, 0.0f, 0.000906795f, 0.0f, 0.0008379f, 0.0f, 0.0f, -0.03925f, 0.95f}},
     }},
    // QUIL (type 7). Seven axes with an elbow offset.
    {7, "QUIL", 7, true,
     {{0.33f, 0.0f, 0.32f, 0.0f, 0.38f, 0.0f, 0.107f},
      {0.0f, 0.0f, 0.0f, 0.08f, -0.08f, 0.0f, 0.09f},
      {0.0f, -k_half_pi, k_half_pi, k_half_pi, -k_half_pi, k_half_pi, k_half_pi},
      {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f}},
     {0.107f, 0.115f, 0.1355f}, // flange d per sensor variant
     {170.0f, 120.0f, 170.0f, 170.0f, 170.0f, 170.0f, 175.0f}, // max position
     {-170.0f, -120.0f, -170.0f, -170.0f, -170.0f, -170.0f, -175.0f}, // min position
     {150.0f, 150.0f, 150.0f, 150.0f, 180.0f, 180.0f, 180.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f}, // joint directions
     {0.3f, 1.6f, 0.6f, 4.0f}, // tcp configuration
     {
        {{0.0117192f, 0.0f, 0.0f, 0.0117192f, 0.0f, 0.010045f, 0.0f, 0.0f, -0.07f, 4.1f}},
        {{0.0082404f, 0.0f, 0.0f, 0.0082404f, 0.0f, 0.0078408f, 0.0f, 0.0f, -0.06f, 3.6f}},
        {{0.0273567f, 0.0f, 0.0f, 0.0273567f, 0.0f, 0.00522f, 0.0f, 0.0f, -0.16f, 2.9f}},
        {{0.0042438f, 0.0f, 0.0f, 0.0042438f, 0.0f, 0.0032076f, 0.0f, 0.0f, -0.06f, 2.2f}},
        {{0.022785f, 0.0f, 0.0f, 0.022785f, 0.0f, 0.00225f, 0.0f, 0.0f, -0.19f, 1.8f}},
        {{0.00129938f, 0.0f, 0.0f, 0.00129938f, 0.0f, 0.00111375f, 0.0f, 0.0f, -0.045f, 1.1f}},
     },
     {
        {{0.000199267f, 0.0f, 0.0f, 0.000199267f, 0.0f, 0.0002527f, 0.0f, 0.0f, -0.025f, 0.35f}},
        {{0.0003848f, 0.0f, 0.0f, 0.0003848f, 0.0f, 0.0004332f, 0.0f, 0.0f, -0.029f, 0.6f}},
        {{0.000787069f, 0.0f, 0.0f, 0.000787069f, 0.0f, 0.0006498f, 0.0f, 0.0f, -0.03925f, 0.9f}},
     }},
    // NEPATQ (type 8). Compact NEPA form; limits and directions are product data.
    {8, "NEPATQ", 6, true,
     {{0.14f, 0.0f, 0.0f, 0.12f, 0.1f, 0.09f},
      {0.0f, 0.0f, 0.35f, 0.31f, 0.0f, 0.0f},
      {0.0f, k_half_pi, 0.0f, 0.0f, k_half_pi, -k_half_pi},
      {0.0f, k_half_pi, 0.0f, k_half_pi, 0.0f, 0.0f}},
     {0.09f, 0.098f, 0.1185f}, // flange d per sensor variant
     {180.0f, 180.0f, 145.0f, 140.0f, 180.0f, 180.0f}, // max position
     {-180.0f, -180.0f, -160.0f, -140.0f, -180.0f, -180.0f}, // min position
     {180.0f, 180.0f, 225.0f, 225.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, -1.0f, 1.0f, -1.0f, 1.0f, 1.0f}, // joint directions
     {0.4f, 2.0f, 0.8f, 4.0f}, // tcp configuration
     {
        {{0.0040932f, 0.0f, 0.0f, 0.0040932f, 0.0f, 0.0045414f, 0.0f, 0.0f, -0.045f, 2.7f}},
        {{0.0437493f, 0.0f, 0.0f, 0.0437493f, 0.0f, 0.005832f, 0.0f, 0.0f, -0.175f, 4.0f}},
        {{0.0170747f, 0.0f, 0.0f, 0.0170747f, 0.0f, 0.002116f, 0.0f, 0.0f, -0.155f, 2.0f}},
        {{0.0007644f, 0.0f, 0.0f, 0.0007644f, 0.0f, 0.0007938f, 0.0f, 0.0f, -0.035f, 0.9f}},
        {{0.000646667f, 0.0f, 0.0f, 0.000646667f, 0.0f, 0.00064f, 0.0f, 0.0f, -0.035f, 0.8f}},
     },
     {
        {{0.000109896f, 0.0f, 0.0f, 0.000109896f, 0.0f, 0.000153125f, 0.0f, 0.0f, -0.02f, 0.25f}},
        {{0.000249125f, 0.0f, 0.0f, 0.000249125f, 0.0f, 0.00030625f, 0.0f, 0.0f, -0.024f, 0.5f}},
        {{0.000557817f, 0.0f, 0.0f, 0.000557817f, 0.0f, 0.00049f, 0.0f, 0.0f, -0.03425f, 0.8f}},
     }},
    // TYPE 9 (type 9). LUNE form, larger; forward kinematics uses the KIVO closed form for this type.
    {9, "TYPE 9", 7, true,
     {{0.36f, 0.0f, 0.42f, 0.0f, 0.4f, 0.0f, 0.126f},
      {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f},
      {0.0f, -k_half_pi, k_half_pi, k_half_pi, -k_half_pi, -k_half_pi, k_half_pi},
      {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f}},
     {0.126f, 0.134f, 0.1545f}, // flange d per sensor variant
     {178.0f, 130.0f, 178.0f, 135.0f, 178.0f, 128.0f, 360.0f}, // max position
     {-178.0f, -130.0f, -178.0f, -135.0f, -178.0f, -128.0f, -360.0f}, // min position
     {180.0f, 180.0f, 225.0f, 225.0f, 225.0f, 225.0f, 225.0f}, // max speed
     {1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f, 1000.0f}, // max acceleration
     {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f}, // joint directions
     {0.3f, 1.6f, 0.6f, 4.0f}, // tcp configuration
     {
        {{0.0155742f, 0.0f, 0.0f, 0.0155742f, 0.0f, 0.012375f, 0.0f, 0.0f, -0.08f, 4.4f}},
        {{0.0094575f, 0.0f, 0.0f, 0.0094575f, 0.0f, 0.009555f, 0.0f, 0.0f, -0.06f, 3.9f}},
        {{0.046983f, 0.0f, 0.0f, 0.046983f, 0.0f, 0.005766f, 0.0f, 0.0f, -0.21f, 3.0f}},
        {{0.0045632f, 0.0f, 0.0f, 0.0045632f, 0.0f, 0.0036064f, 0.0f, 0.0f, -0.06f, 2.3f}},
        {{0.0266177f, 0.0f, 0.0f, 0.0266177f, 0.0f, 0.0025688f, 0.0f, 0.0f, -0.2f, 1.9f}},
        {{0.0016348f, 0.0f, 0.0f, 0.0016348f, 0.0f, 0.0012696f, 0.0f, 0.0f, -0.05f, 1.2f}},
     },
     {
        {{0.000243333f, 0.0f, 0.0f, 0.000243333f, 0.0f, 0.00032f, 0.0f, 0.0f, -0.025f, 0.4f}},
        {{0.000442217f, 0.0f, 0.0f, 0.000442217f, 0.0f, 0.00052f, 0.0f, 0.0f, -0.029f, 0.65f}},
        {{0.000867845f, 0.0f, 0.0f, 0.000867845f, 0.0f, 0.00076f, 0.0f, 0.0f, -0.03925f, 0.95f}},
     }},
};
// clang-format on

model_params expand(const model_source &s) {
    model_params m{};
    m.type = s.type;
    m.name = s.name;
    m.dof = s.dof;
    m.nominal = s.nominal;
    const int last = s.dof - 1;
    for (int v = 0; v < 3; ++v) {
        m.dh[v] = s.dh;
        m.dh[v].d[last] = s.flange_d[v];
        for (int i = 0; i < last; ++i)
            m.dynamics[v][i] = s.links[i];
        m.dynamics[v][last] = s.flange[v];
    }
    std::copy_n(s.max_pos_deg, 7, m.max_pos_deg);
    std::copy_n(s.min_pos_deg, 7, m.min_pos_deg);
    std::copy_n(s.max_speed_deg, 7, m.max_speed_deg);
    std::copy_n(s.max_acc_deg, 7, m.max_acc_deg);
    std::copy_n(s.direction, 7, m.direction);
    std::copy_n(s.tcp_config, 4, m.tcp_config);
    return m;
}

constexpr size_t model_count = std::size(model_sources);

const std::array<model_params, model_count> &model_table() {
    static const std::array<model_params, model_count> table = [] {
        std::array<model_params, model_count> t{};
        for (size_t i = 0; i < model_count; ++i)
            t[i] = expand(model_sources[i]);
        return t;
    }();
    return table;
}

} // namespace

const model_params *model_params_for(int type) {
    for (const model_params &entry : model_table()) {
        if (entry.type == type) return &entry;
    }
    return nullptr;
}
