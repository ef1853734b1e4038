#pragma once

// A small device over host memory, written as a user would write one against
// the installed headers alone: buffers, images of every shape but one sample,
// maps straight into storage, copies that scale by nearest texel. It runs no
// shaders (CreateShader gives the invalid handle) and keeps no time (every
// query reads 0).

#include <Rendering/Device.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class HostDevice final : public Zorvan::Rendering::IGpu {
public:
    // Refused calls, one line each; empty when the device was used well.
    std::vector<std::string> const& Errors() const noexcept { return errors_; }
    std::size_t LiveCount() const noexcept;

    std::uint32_t GetMaximumBufferSize() override { return 1u << 28; }
    Zorvan::Rendering::BufferDescription GetBufferDescription(Zorvan::Rendering::BufferId buffer) override;
    Zorvan::Rendering::BufferId CreateBuffer(Zorvan::Rendering::BufferDescription const& description,
                                             void const* initialData) override;
    void DestroyBuffer(Zorvan::Rendering::BufferId buffer) noexcept override;
    void* MapBuffer(Zorvan::Rendering::BufferId buffer, std::uint32_t mode) override;
    void UnmapBuffer(Zorvan::Rendering::BufferId) noexcept override {}

    Zorvan::Rendering::RenderTargetViewInfo GetRenderTargetViewDescription(Zorvan::Rendering::RtvId view) override;
    Zorvan::Rendering::ImageDesc GetImageDescription(Zorvan::Rendering::ImageId image) override;
    Zorvan::Rendering::ImageId CreateImage(Zorvan::Rendering::ImageDesc const& description) override;
    void DestroySampler(Zorvan::Rendering::SamplerId sampler) noexcept override { Forget(sampler.Value()); }
    void DestroyRenderTargetView(Zorvan::Rendering::RtvId view) noexcept override { Forget(view.Value()); }
    void DestroyShaderResourceView(Zorvan::Rendering::SrvId view) noexcept override { Forget(view.Value()); }
    void DestroyImage(Zorvan::Rendering::ImageId image) noexcept override;
    Zorvan::Rendering::SrvId CreateShaderResourceView(
        Zorvan::Rendering::ImageId image, Zorvan::Rendering::ShaderResourceViewDescription const& description) override;
    Zorvan::Rendering::RtvId CreateRenderTargetView(
        Zorvan::Rendering::ImageId image, Zorvan::Rendering::RenderTargetViewDescription const& description) override;
    void CopyImage(Zorvan::Rendering::ImageId source, Zorvan::Rendering::SubImage const& sourceWhere,
                   Zorvan::Rendering::ImageId destination,
                   Zorvan::Rendering::SubImage const& destinationWhere) override;
    void ResolveImage(Zorvan::Rendering::ImageId source, Zorvan::Rendering::SubImage const&,
                      Zorvan::Rendering::ImageId, Zorvan::Rendering::SubImage const&) override;
    Zorvan::Rendering::MappedImage MapImage(Zorvan::Rendering::ImageId image,
                                            Zorvan::Rendering::SubImage const& where, std::uint32_t mode) override;
    void UnmapImage(Zorvan::Rendering::ImageId, Zorvan::Rendering::SubImage const&) noexcept override {}
    Zorvan::Rendering::SamplerId CreateSampler(Zorvan::Rendering::SamplerDescription const& description) override;

    Zorvan::Rendering::ShaderId CreateShader(Zorvan::Rendering::ShaderDescription const& description) override;
    void DestroyShader(Zorvan::Rendering::ShaderId shader) noexcept override { Forget(shader.Value()); }

    void Draw(Zorvan::Rendering::VertexBufferBindings const&, std::uint32_t, std::uint32_t) override {}
    void BeginQuery(Zorvan::Rendering::QueryId) override {}
    void EndQuery(Zorvan::Rendering::QueryId) override {}
    void RecordQuery(Zorvan::Rendering::QueryId) override {}
    std::uint64_t GetQueryResult(Zorvan::Rendering::QueryId) override { return 0; }
    void DrawIndexed(Zorvan::Rendering::VertexBufferBindings const&, Zorvan::Rendering::BufferId, std::uint32_t,
                     std::uint32_t) override
    {
    }

    Zorvan::Rendering::PsoId CreatePipelineState(
        Zorvan::Rendering::PipelineStateDescription const& description) override;
    void DestroyQuery(Zorvan::Rendering::QueryId query) noexcept override { Forget(query.Value()); }
    void DestroyPipelineState(Zorvan::Rendering::PsoId pipeline) noexcept override { Forget(pipeline.Value()); }
    void BindPipelineState(Zorvan::Rendering::PsoId, Zorvan::Rendering::BindingState const&) override {}
    Zorvan::Rendering::QueryId CreateQuery(Zorvan::Rendering::QueryType type) override;

private:
    struct Image {
        Zorvan::Rendering::ImageDesc description;
        std::uint32_t levels = 1;
        std::uint32_t faces = 1;
        std::vector<std::vector<unsigned char>> subImages; // level-major, then face
    };

    std::uint32_t NewHandle() noexcept { return next_++; }
    void Forget(std::uint64_t handle) noexcept;
    Image* FindImage(Zorvan::Rendering::ImageId image, char const* operation);
    std::vector<unsigned char>* SubImageBytes(Image& image, Zorvan::Rendering::SubImage const& where);
    void Refuse(std::string message) { errors_.push_back(std::move(message)); }

    std::uint32_t next_ = 1;
    std::map<std::uint32_t, Image> images_;
    std::map<std::uint32_t, std::pair<Zorvan::Rendering::BufferDescription, std::vector<unsigned char>>> buffers_;
    std::map<std::uint32_t, Zorvan::Rendering::RenderTargetViewInfo> targets_;
    std::map<std::uint32_t, int> others_; // views, samplers, pipelines, queries: nothing to keep
    std::vector<std::string> errors_;
};
