// Camera rays traced in packets must see what single rays see: the same
// object, primitive, distance and barycentrics, for full and partial
// packets, coherent and scattered rays, camera rays and others (objects
// hidden from the camera are skipped by camera rays only).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/ray_tracer.h"
#include "renderer/render_scene.h"
#include "scene/scene_loader.h"

TEST(RayPackets, PacketsOfAnySizeHitWhatSingleRaysHit) {
    TdependGraph graph;
    TsceneLoader loader;
    const std::string file = std::string(SHADENET_SOURCE_DIR) + "/examples/showcase.json";
    ASSERT_TRUE(loader.load(file, graph));
    TrenderScene scene;
    std::string error;
    ASSERT_TRUE(scene.build(graph, file, "", error)) << error;

    std::mt19937 rng(17);
    std::uniform_real_distribution<float> u(-1, 1);
    std::vector<TworldRay> rays;
    for (int y = 0; y < 48; ++y)  // a fan from the usual camera place
        for (int x = 0; x < 64; ++x) {
            TworldRay r;
            r.origin = {0, 3, 10};
            r.direction = normalize(T3Float((x - 32) / 40.0f, (y - 24) / 40.0f - 0.2f, -1));
            rays.push_back(r);
        }
    for (int i = 0; i < 1500; ++i) {  // scattered, from anywhere, some short
        TworldRay r;
        r.origin = {5 * u(rng), 3 + 3 * u(rng), 5 * u(rng)};
        const T3Float d{u(rng), u(rng), u(rng)};
        r.direction = d * (1 / (length(d) + 1e-6f));
        if (i % 3 == 0) r.tFar = 2 + 4 * (u(rng) + 1);
        rays.push_back(r);
    }
    size_t hitsSeen = 0, edgeTies = 0;
    for (bool camera : {true, false})
        for (size_t first = 0, n = 1; first < rays.size(); first += n, n = n % kRayPacket + 1) {
            const int count = int(std::min(n, rays.size() - first));
            RTCRayHit packet[kRayPacket];
            intersectWorldPacket(scene.embreeScene(), &rays[first], count, camera, packet);
            for (int j = 0; j < count; ++j) {
                RTCRayHit single;
                const bool hit = intersectWorld(scene.embreeScene(), rays[first + size_t(j)], camera, single);
                const std::string where = "ray " + std::to_string(first + size_t(j)) + (camera ? " (camera)" : "");
                ASSERT_EQ(packet[j].hit.geomID != RTC_INVALID_GEOMETRY_ID, hit) << where;
                if (!hit) continue;
                ++hitsSeen;
                EXPECT_EQ(packet[j].hit.instID[0], single.hit.instID[0]) << where;
                EXPECT_NEAR(packet[j].ray.tfar, single.ray.tfar, 1e-5f * single.ray.tfar) << where;
                if (packet[j].hit.primID != single.hit.primID) {
                    // A ray exactly on the edge two triangles share may take
                    // either; both hits must then lie on an edge.
                    auto onEdge = [](const RTCRayHit& h) {
                        return std::min({h.hit.u, h.hit.v, 1 - h.hit.u - h.hit.v}) < 1e-5f;
                    };
                    EXPECT_TRUE(onEdge(packet[j]) && onEdge(single)) << where;
                    ++edgeTies;
                    continue;
                }
                EXPECT_NEAR(packet[j].hit.u, single.hit.u, 1e-5f) << where;
                EXPECT_NEAR(packet[j].hit.v, single.hit.v, 1e-5f) << where;
            }
        }
    EXPECT_LE(edgeTies, 4u);
    EXPECT_GT(hitsSeen, rays.size() / 2) << "the rays must mostly hit for the comparison to mean much";
}
