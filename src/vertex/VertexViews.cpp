// Zero-copy conversions: caller arrays whose bytes already are an array of
// records (tightly packed floats, four-byte colours) are reinterpreted in place.

#include <Rendering/Vertex.h>

#include <cstddef>

namespace Zorvan::Rendering {
namespace {

// An empty view carries a null pointer rather than the caller's, so that callers
// can test data() alone.
template <typename Record, typename Source>
span<Record const> View(Source const* data, std::size_t count) noexcept
{
    if (count == 0)
        return {};
    return {reinterpret_cast<Record const*>(data), count};
}

template <typename Record, std::size_t PerRecord, typename Scalar>
span<Record const> ViewScalars(span<Scalar const> scalars) noexcept
{
    static_assert(sizeof(Record) == PerRecord * sizeof(Scalar));
    return View<Record>(scalars.data(), scalars.size() / PerRecord);
}

template <typename Record, typename Element>
span<Record const> ViewElements(span<Element const> elements) noexcept
{
    static_assert(sizeof(Record) == sizeof(Element));
    return View<Record>(elements.data(), elements.size());
}

} // namespace

span<VertexP const> ToVertexP(span<float const> xyz) { return ViewScalars<VertexP, 3>(xyz); }
span<VertexP const> ToVertexP(span<Math::point<float, 3> const> points) { return ViewElements<VertexP>(points); }
span<VertexP const> ToVertexP(span<std::array<float, 3> const> points) { return ViewElements<VertexP>(points); }

span<VertexN const> ToVertexN(span<float const> xyz) { return ViewScalars<VertexN, 3>(xyz); }
span<VertexN const> ToVertexN(span<Math::point<float, 3> const> normals) { return ViewElements<VertexN>(normals); }
span<VertexN const> ToVertexN(span<std::array<float, 3> const> normals) { return ViewElements<VertexN>(normals); }

span<VertexT const> ToVertexT(span<float const> uv) { return ViewScalars<VertexT, 2>(uv); }
span<VertexT const> ToVertexT(span<Math::point<float, 2> const> uvs) { return ViewElements<VertexT>(uvs); }
span<VertexT const> ToVertexT(span<std::array<float, 2> const> uvs) { return ViewElements<VertexT>(uvs); }

span<VertexC const> ToVertexC(span<Math::point<std::uint8_t, 4> const> rgba) { return ViewElements<VertexC>(rgba); }
span<VertexC const> ToVertexC(span<std::array<std::uint8_t, 4> const> rgba) { return ViewElements<VertexC>(rgba); }

} // namespace Zorvan::Rendering
