#include "Tests/Doubles/CoreImage/CoreImageDouble.h"

#include "Platform/CoreImage/CoreImage.h"

#include <mutex>
#include <utility>

namespace ci {

struct Image::Recipe {
    std::string path;
    CGRect extent;
    double scale = 0;
    double aspectRatio = 0;
    CGAffineTransform transform{1, 0, 0, 1, 0, 0};
};

struct Filter::State {
    std::optional<Image> image;
    double scale = 0;
    double aspectRatio = 0;
};

struct Context::State {};

}  // namespace ci

namespace {

struct State {
    std::optional<CGRect> pictureExtent = CGRectMake(0, 0, 2560, 1440);
    bool filterExists = true;
    bool filterHasOutput = true;
    std::vector<pavo::test::RecordedRender> renders;
    std::vector<std::string> calls;
};

std::mutex mutex;

State& state()
{
    static State& instance = *new State;
    return instance;
}

void record(std::string call)
{
    const std::lock_guard lock(mutex);
    state().calls.push_back(std::move(call));
}

}  // namespace

namespace pavo::test {

void resetCoreImageDouble()
{
    const std::lock_guard lock(mutex);
    state() = {};
}

void setPictureExtent(std::optional<CGRect> extent)
{
    const std::lock_guard lock(mutex);
    state().pictureExtent = extent;
}

void setFilterExists(bool exists)
{
    const std::lock_guard lock(mutex);
    state().filterExists = exists;
}

void setFilterHasOutput(bool hasOutput)
{
    const std::lock_guard lock(mutex);
    state().filterHasOutput = hasOutput;
}

std::vector<RecordedRender> recordedRenders()
{
    const std::lock_guard lock(mutex);
    return state().renders;
}

std::vector<std::string> recordedCoreImageCalls()
{
    const std::lock_guard lock(mutex);
    return state().calls;
}

}  // namespace pavo::test

namespace ci {

std::optional<Image> Image::imageWithContentsOfFile(const std::string& path)
{
    record("load " + path);
    const std::lock_guard lock(mutex);
    if (!::state().pictureExtent) return std::nullopt;
    return Image(std::make_shared<const Recipe>(Recipe{.path = path, .extent = *::state().pictureExtent}));
}

CGRect Image::extent() const
{
    return recipe_->extent;
}

Image Image::imageByApplyingTransform(CGAffineTransform transform) const
{
    record("transform");
    auto recipe = *recipe_;
    recipe.transform = transform;
    return Image(std::make_shared<const Recipe>(std::move(recipe)));
}

std::optional<Filter> Filter::filterWithName(std::string_view name)
{
    record("filter " + std::string(name));
    const std::lock_guard lock(mutex);
    return ::state().filterExists ? std::optional(Filter(std::make_shared<State>())) : std::nullopt;
}

void Filter::setValue(const std::variant<Image, double>& value, std::string_view key)
{
    record("set " + std::string(key));
    if (key == kCIInputImageKey) state_->image = std::get<Image>(value);
    if (key == kCIInputScaleKey) state_->scale = std::get<double>(value);
    if (key == kCIInputAspectRatioKey) state_->aspectRatio = std::get<double>(value);
}

std::optional<Image> Filter::outputImage() const
{
    record("output");
    const std::lock_guard lock(mutex);
    if (!::state().filterHasOutput || !state_->image) return std::nullopt;
    auto recipe = state_->image->recipe();
    recipe.scale = state_->scale;
    recipe.aspectRatio = state_->aspectRatio;
    return Image(std::make_shared<const Image::Recipe>(std::move(recipe)));
}

Context::Context() : state_(std::make_unique<State>()) {}

Context::~Context() = default;

void Context::render(const Image& image, CVPixelBufferRef buffer)
{
    record("render");
    const auto& recipe = image.recipe();
    const std::lock_guard lock(mutex);
    ::state().renders.push_back({buffer, recipe.path, recipe.scale, recipe.aspectRatio, recipe.transform});
}

}  // namespace ci
