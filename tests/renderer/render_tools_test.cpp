// A swatch rendered in process, and the ray sampler that materials trace
// through.
#include <gtest/gtest.h>

#include <cmath>

#include "renderer/ray_tracer.h"
#include "renderer/render_fixture.h"
#include "renderer/renderer_test_surface.h"
#include "renderer/swatch.h"
#include "shading/shading_engine.h"
#include "support/expect_near.h"

TEST(RenderTools, ASwatchShowsTheSubjectBeforeTheCheckedBackdrop) {
    // A flat test surface on the sphere: the centre is its colour; the
    // corners are the backdrop's two greys.
    TdependGraph graph;
    TdependNode* surface = graph.createNode("rendererTestSurface", "probe");
    ASSERT_NE(surface, nullptr);
    int flat = TrendererTestSurface::kFlat;
    T3Float colour(0.9f, 0.1f, 0.2f);
    surface->setAttributeValue(&TrendererTestSurface::saMode(), &flat);
    surface->setAttributeValue(&TrendererTestSurface::saColor(), &colour);
    TswatchOptions options;
    options.size = 48, options.samplesPerPixel = 1, options.threads = 1;
    TframeBuffer image;
    std::string error;
    ASSERT_TRUE(renderSwatch(graph, surface, options, image, error)) << error;
    expectNear(rgb(image, 24, 24), colour, "the centre");
    float lo = 1, hi = 0;
    for (int y : {0, 1, 46, 47})
        for (int x : {0, 3, 44, 47}) {
            const float* p = image.pixel(x, y);
            EXPECT_EQ(p[3], 1.0f);
            EXPECT_EQ(p[0], p[2]);  // grey: not the subject
            lo = std::min(lo, p[0]), hi = std::max(hi, p[0]);
        }
    EXPECT_LT(lo, hi);  // two greys: the checks are there

    EXPECT_FALSE(renderSwatch("noSuchType", options, image, error));
    EXPECT_NE(error.find("unknown node type 'noSuchType'"), std::string::npos);
}

TEST(RenderTools, TheRaySamplerTracesAndShadesInCameraSpace) {
    // A unit ball 5 units before the camera, shaded flat (0.2, 0.4, 0.6).
    std::string nodes = R"({"type": "sphere", "name": "ball"}, )" +
                        testGroup("surf", TrendererTestSurface::kFlat, R"("ball")", R"("color": [0.2, 0.4, 0.6])");
    TdependGraph graph;
    TsceneLoader loader;
    ASSERT_TRUE(loader.loadText(sceneText(nodes, testConnection("surf")), "rays.json", graph));
    TrenderScene scene;
    std::string error;
    ASSERT_TRUE(scene.build(graph, "", "", error)) << error;
    scene.settings().maxRayDepth = 2;
    TframeConstants constants;
    TrenderThreadBase setup(&constants);
    for (TDNshadingEngine* g : scene.groups()) setup.initShadingGroup(g);
    {
        TrendererRaySampler sampler(scene, 0.001f);
        struct Case {
            T3Float origin, direction;
            int depth;
            bool hits;
            float distance;
        };
        const Case cases[] = {
            {{0, 0, 0}, {0, 0, -1}, 1, true, 4},
            {{0.5f, 0, 0}, {0, 0, -1}, 1, true, 5 - std::sqrt(0.75f)},
            {{0, 0, 0}, {0, 1, 0}, 1, false, 0},
            {{0, 0, 0}, {0, 0, -1}, 3, false, 0},  // deeper than the limit
        };
        for (const Case& c : cases) {
            TgenericRay ray;
            ray.origin = c.origin, ray.direction = c.direction, ray.rayDepth = c.depth;
            TgenericRay* rays[1] = {&ray};
            Tspectrum radiance, transmittance;
            sampler.traceRays(nullptr, 1, rays, &radiance, &transmittance);
            if (c.hits) {
                EXPECT_NEAR(ray.distance, c.distance, 1e-4f);
                EXPECT_NEAR(radiance.g(), 0.4f, 1e-6f);
                EXPECT_EQ(transmittance.r(), 0.0f);
            } else {
                EXPECT_EQ(ray.distance, FLT_MAX);
                EXPECT_EQ(transmittance.r(), 1.0f);
                EXPECT_EQ(radiance.g(), 0.0f);  // the default background is black
            }
        }
        // Shadow rays: blocked through the ball, free beside it or short of it.
        struct Shadow {
            T3Float origin, direction;
            float distance;
            bool blocked;
        };
        const Shadow shadows[] = {
            {{0, 0, 0}, {0, 0, -1}, 10, true},
            {{0, 0, 0}, {0, 0, -1}, 3.5f, false},
            {{2, 0, 0}, {0, 0, -1}, 10, false},
        };
        for (const Shadow& s : shadows) {
            TgenericRay ray;
            ray.origin = s.origin, ray.direction = s.direction, ray.distance = s.distance;
            TgenericRay* rays[1] = {&ray};
            Treflectance through;
            sampler.traceShadowRays(nullptr, 1, rays, &through);
            EXPECT_EQ(through.r(), s.blocked ? 0.0f : 1.0f) << s.origin.x << " " << s.distance;
        }
        sampler.endSampling();
    }
    TrenderThreadBase::resetShadingGroups();
}
