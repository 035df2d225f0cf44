#include "platform/faces/CIDetectorModule.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

using platform::CGImage;
using platform::CGRect;
using platform::CIDetectorModule;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr const char* kOperation = "+[CIDetector detectorOfType:context:options:] - ";

CGImage picture()
{
    CGImage image{.width = 100, .height = 200, .bytesPerRow = 400, .hasAlpha = false, .pixels = {}};
    image.pixels.resize(image.bytesPerRow * image.height);
    return image;
}

std::string contentsOf(const std::string& path)
{
    return TemporaryFolder::contentsOf(path);
}

class CIDetectorModuleTest : public testing::Test {
protected:
    /// Makes detectors three times, of which none may come about; one line of the log must say why.
    void expectRefused(const std::string& module, const std::string& model, const std::string& reason)
    {
        SCOPED_TRACE(reason);
        LogRecorder log;
        const auto loaded = CIDetectorModule::moduleWithPaths({{module}, {model}});
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(loaded->makeDetector(), nullptr);
        EXPECT_THAT(log.lines(), ElementsAre(AllOf(StartsWith(kOperation), HasSubstr(reason))));
    }

    TemporaryFolder folder_;
    const std::string model_ = STILLORA_FACES_MODEL;
};

} // namespace

TEST_F(CIDetectorModuleTest, TellsWhichFileIsMissingWithoutLoadingAny)
{
    const std::string there = folder_.makeFile("there", "no module");
    const std::string gone = folder_.path("gone");
    EXPECT_EQ(CIDetectorModule::missingFile({{gone, there}, {there}}), std::nullopt);
    EXPECT_EQ(CIDetectorModule::missingFile({{gone, gone + "2"}, {there}}), gone + "2");
    EXPECT_EQ(CIDetectorModule::missingFile({{there}, {gone}}), gone);
}

TEST_F(CIDetectorModuleTest, AMissingModuleIsLoggedOnceAndMeansNoDetector)
{
    expectRefused(folder_.path("absent.so"), model_, "there is no face detector at " + folder_.path("absent.so"));
}

TEST_F(CIDetectorModuleTest, ADamagedModuleIsLoggedOnceAndMeansNoDetector)
{
    const std::string whole = contentsOf(STILLORA_FACES_MODULE);
    ASSERT_GT(whole.size(), 4096U);
    const std::string damaged = folder_.path("faces.so");
    const std::string reason = "the face detector " + damaged + " is damaged";
    for (const size_t length : {size_t{0}, size_t{1}, size_t{63}, size_t{64}, whole.size() / 2, whole.size() - 1}) {
        SCOPED_TRACE(length);
        folder_.makeFile("faces.so", whole.substr(0, length));
        expectRefused(damaged, model_, reason);
    }
    folder_.makeFile("faces.so", std::string(whole.size(), 'x'));
    expectRefused(damaged, model_, reason);
    expectRefused(folder_.makeFolder("folder.so"), model_,
                  "the face detector " + folder_.path("folder.so") + " is damaged");
}

TEST_F(CIDetectorModuleTest, AModuleThatCannotBeLinkedIsLoggedOnceAndMeansNoDetector)
{
    // A name inside that some library has is changed, so that this one has it no more.
    std::string module = contentsOf(STILLORA_FAKE_MODULE);
    const size_t name = module.find("libstdc++.so.6");
    ASSERT_NE(name, std::string::npos);
    module.replace(name, 6, "absent");
    expectRefused(folder_.makeFile("faces.so", module), model_, "the face detector could not be loaded: ");
}

TEST_F(CIDetectorModuleTest, AnotherLibraryOrVersionIsLoggedOnceAndMeansNoDetector)
{
    expectRefused(STILLORA_OTHER_MODULE, model_, "the face detector " STILLORA_OTHER_MODULE " is none of this version");
    expectRefused(STILLORA_OLD_MODULE, model_, "the face detector " STILLORA_OLD_MODULE " is none of this version");
}

TEST_F(CIDetectorModuleTest, AMissingOrDamagedModelIsLoggedOnceAndMeansNoDetector)
{
    const auto refuse = [&](const std::string& model) {
        expectRefused(STILLORA_FACES_MODULE, model, "the model " + model + " could not be read: ");
    };
    refuse(folder_.path("absent.onnx"));
    refuse(folder_.makeFolder("folder.onnx"));
    const std::string whole = contentsOf(model_);
    ASSERT_EQ(whole.size(), 603432U);
    refuse(folder_.makeFile("empty.onnx", ""));
    refuse(folder_.makeFile("text.onnx", "No model at all.\n"));
    refuse(folder_.makeFile("zeros.onnx", std::string(whole.size(), '\0')));
    for (const size_t length : {size_t{100}, whole.size() / 4, whole.size() / 2, whole.size() - 1})
        refuse(folder_.makeFile("cut.onnx", whole.substr(0, length)));
}

TEST_F(CIDetectorModuleTest, AFailureToLookIsLoggedOnceAndMeansNoFaces)
{
    LogRecorder log;
    const auto module = CIDetectorModule::moduleWithPaths({{STILLORA_FAKE_MODULE}, {"fails"}});
    const auto first = module->makeDetector();
    ASSERT_NE(first, nullptr);
    EXPECT_THAT(first->featuresInImage(picture()), IsEmpty());
    EXPECT_THAT(first->featuresInImage(picture()), IsEmpty());
    const auto second = module->makeDetector();
    ASSERT_NE(second, nullptr);
    EXPECT_THAT(second->featuresInImage(picture()), IsEmpty());
    EXPECT_THAT(log.lines(),
                ElementsAre(kOperation + std::string("faces could not be looked for: a failure for tests")));
}

TEST_F(CIDetectorModuleTest, AModelThatTheModuleRefusesIsNamedWithTheReason)
{
    expectRefused(STILLORA_FAKE_MODULE, "unreadable", "the model unreadable could not be read: it is for tests");
}

TEST_F(CIDetectorModuleTest, KeepsTheNetworksOfDetectorsThatAreGone)
{
    const auto module = CIDetectorModule::moduleWithPaths({{STILLORA_FAKE_MODULE}, {"model"}});
    // The width of the first face is the number of networks opened so far, in all modules of this process.
    const auto opened = [](platform::CIDetector& detector) {
        return detector.featuresInImage(picture()).at(0).size.width;
    };
    const double one = opened(*module->makeDetector());
    EXPECT_EQ(opened(*module->makeDetector()), one);
    const auto held = module->makeDetector();
    const auto another = module->makeDetector();
    EXPECT_EQ(opened(*held), one + 1);
    EXPECT_EQ(opened(*another), one + 1);
}

TEST_F(CIDetectorModuleTest, TurnsTheModulesRectanglesOver)
{
    const auto detector = CIDetectorModule::moduleWithPaths({{STILLORA_FAKE_MODULE}, {"model"}})->makeDetector();
    ASSERT_NE(detector, nullptr);
    const auto faces = detector->featuresInImage(picture());
    ASSERT_EQ(faces.size(), 2U);
    EXPECT_EQ(faces[1], (CGRect{{0, 100}, {40, 30}}));
    EXPECT_THAT(detector->featuresInImage(CGImage{}), IsEmpty());
}

TEST_F(CIDetectorModuleTest, ADetectorOutlivesItsModule)
{
    auto module = CIDetectorModule::moduleWithPaths({{STILLORA_FAKE_MODULE}, {"model"}});
    const auto detector = module->makeDetector();
    module.reset();
    ASSERT_NE(detector, nullptr);
    EXPECT_EQ(detector->featuresInImage(picture()).size(), 2U);
}

TEST_F(CIDetectorModuleTest, TakesTheFirstFilesThatExist)
{
    const auto module = CIDetectorModule::moduleWithPaths(
        {{folder_.path("absent.so"), STILLORA_FAKE_MODULE, STILLORA_OLD_MODULE}, {folder_.path("absent"), model_}});
    EXPECT_NE(module->makeDetector(), nullptr);
}

TEST_F(CIDetectorModuleTest, LooksBesideTheProgramAndWhereItIsInstalled)
{
    const EnvironmentVariable noModule("STILLORA_FACES_MODULE", std::nullopt);
    const EnvironmentVariable noModel("STILLORA_FACES_MODEL", std::nullopt);
    const auto paths = CIDetectorModule::standardPaths();
    ASSERT_GE(paths.modules.size(), 2U);
    EXPECT_EQ(paths.modules.front(), STILLORA_FACES_MODULE);
    EXPECT_THAT(paths.modules.back(), testing::EndsWith("/stillora/stillora-faces.so"));
    EXPECT_THAT(paths.models.back(), testing::EndsWith("/stillora/models/face_detection_back_256x256_barracuda.onnx"));
}

TEST_F(CIDetectorModuleTest, LooksOnlyWhereTheEnvironmentSays)
{
    const EnvironmentVariable module("STILLORA_FACES_MODULE", "/elsewhere/faces.so");
    const EnvironmentVariable model("STILLORA_FACES_MODEL", "/elsewhere/model");
    const auto paths = CIDetectorModule::standardPaths();
    EXPECT_THAT(paths.modules, ElementsAre("/elsewhere/faces.so"));
    EXPECT_THAT(paths.models, ElementsAre("/elsewhere/model"));
}

TEST_F(CIDetectorModuleTest, EightThatFindNoModuleLogItOnce)
{
    LogRecorder log;
    const auto module = CIDetectorModule::moduleWithPaths({{folder_.path("absent.so")}, {model_}});
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] { EXPECT_EQ(module->makeDetector(), nullptr); });
    }
    EXPECT_EQ(log.lines().size(), 1U);
}
