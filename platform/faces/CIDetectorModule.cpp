#include "platform/faces/CIDetectorModule.h"

#include "platform/faces/module/FaceModule.h"
#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/LoadableModule.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSLog.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

constexpr const char* kOperation = "+[CIDetector detectorOfType:context:options:]";
constexpr const char* kModelName = "face_detection_back_256x256_barracuda.onnx";

/// More faces than anyone can see in a picture.
constexpr size_t kMostFaces = 1024;

/// The first that exists; where none does the last, at which it would be installed, so that a message can name it.
std::string chosen(const std::vector<std::string>& paths)
{
    const auto found = std::find_if(paths.begin(), paths.end(),
                                    [](const std::string& path) { return access(path.c_str(), F_OK) == 0; });
    if (found != paths.end())
        return *found;
    return paths.empty() ? "" : paths.back();
}

} // namespace

/// Lends a finder out for the life of one detector.
class ModuleDetector final : public CIDetector {
public:
    ModuleDetector(std::shared_ptr<CIDetectorModule> module, const FaceModule& functions,
                   CIDetectorModule::Finder finder)
        : module_(std::move(module)), functions_(functions), finder_(std::move(finder))
    {}

    ~ModuleDetector() override { module_->giveBack(std::move(finder_)); }

    std::vector<CGRect> featuresInImage(const CGImage& image) override
    {
        if (image.width == 0 || image.height == 0)
            return {};
        const FaceModulePicture picture = {image.pixels.data(), image.width, image.height, image.bytesPerRow};
        std::vector<FaceModuleFace> faces(kMostFaces);
        std::array<char, 512> reason{};
        const int64_t count =
            functions_.find(finder_.get(), &picture, faces.data(), faces.size(), reason.data(), reason.size());
        if (count < 0) {
            module_->logOnce(std::string("faces could not be looked for: ") + reason.data());
            return {};
        }
        faces.resize(static_cast<size_t>(count));
        std::vector<CGRect> features;
        features.reserve(faces.size());
        for (const auto& face : faces) {
            const double bottom = static_cast<double>(image.height) - face.y - face.height;
            features.push_back({{face.x, bottom}, {face.width, face.height}});
        }
        return features;
    }

private:
    const std::shared_ptr<CIDetectorModule> module_;
    const FaceModule& functions_;
    CIDetectorModule::Finder finder_;
};

std::shared_ptr<CIDetectorModule> CIDetectorModule::moduleWithPaths(Paths paths)
{
    return std::shared_ptr<CIDetectorModule>(new CIDetectorModule(std::move(paths)));
}

CIDetectorModule& CIDetectorModule::mainModule()
{
    // Never taken down: threads may still render when the process ends.
    static const auto* const module = new std::shared_ptr<CIDetectorModule>(moduleWithPaths(standardPaths()));
    return **module;
}

CIDetectorModule::Paths CIDetectorModule::standardPaths()
{
    Paths paths = {installedPlaces(InstalledFolder::Modules, MODULE_NAME),
                   installedPlaces(InstalledFolder::Models, kModelName)};
    if (const char* module = getenv(MODULE_VARIABLE))
        paths.modules = {module};
    if (const char* model = getenv(MODEL_VARIABLE))
        paths.models = {model};
    return paths;
}

std::optional<std::string> CIDetectorModule::missingFile(const Paths& paths)
{
    for (const auto* files : {&paths.modules, &paths.models})
        if (std::string file = chosen(*files); access(file.c_str(), R_OK) != 0)
            return file;
    return std::nullopt;
}

std::unique_ptr<CIDetector> CIDetectorModule::makeDetector()
{
    Finder finder = openFinder();
    if (!finder)
        return nullptr;
    LockGuard guard(lock_);
    return std::make_unique<ModuleDetector>(shared_from_this(), *module_, std::move(finder));
}

CIDetectorModule::Finder CIDetectorModule::openFinder()
{
    std::string reason;
    {
        LockGuard guard(lock_);
        if (!idle_.empty()) {
            Finder finder = std::move(idle_.back());
            idle_.pop_back();
            return finder;
        }
        if (!std::exchange(tried_, true) && !load(&reason))
            module_ = nullptr;
        if (module_) {
            // Under the lock, as the library reads models into tables of its own.
            std::array<char, 512> text{};
            if (void* object = module_->open(model_.c_str(), text.data(), text.size()))
                return {object, module_->close};
            module_ = nullptr;
            reason = localized("the model {} could not be read: {}", {model_, text.data()});
        }
    }
    if (!reason.empty())
        logOnce(reason);
    return {nullptr, [](void*) {}};
}

bool CIDetectorModule::load(std::string* reason)
{
    constexpr ModuleKind kKind = {translatable("face detector"), kFaceModuleSymbol, kFaceModuleVersion};
    module_ = static_cast<const FaceModule*>(loadModule(kKind, chosen(paths_.modules), *reason));
    if (!module_)
        return false;
    model_ = chosen(paths_.models);
    return true;
}

void CIDetectorModule::giveBack(Finder finder)
{
    LockGuard guard(lock_);
    idle_.push_back(std::move(finder));
}

void CIDetectorModule::logOnce(const std::string& reason)
{
    if (!logged_.exchange(true))
        logFailure(kOperation, reason);
}

} // namespace platform
