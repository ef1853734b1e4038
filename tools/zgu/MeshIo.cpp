#include "MeshIo.h"

#include "Errors.h"

#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace Zorvan::Tool {
namespace {

std::string LowerExtension(std::filesystem::path const& path)
{
    std::string ext = path.extension().string();
    if (!ext.empty() && ext.front() == '.')
        ext.erase(0, 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

void AppendMesh(aiMesh const& mesh, MeshData& out, bool anyTexcoords)
{
    auto const base = static_cast<std::uint32_t>(out.positions.size());
    for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
        aiVector3D const& p = mesh.mVertices[v];
        out.positions.push_back({{p.x, p.y, p.z}});
        if (anyTexcoords) {
            aiVector3D const t = mesh.HasTextureCoords(0) ? mesh.mTextureCoords[0][v] : aiVector3D{};
            out.texcoords.push_back({{t.x, t.y}});
        }
    }
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        aiFace const& face = mesh.mFaces[f];
        if (face.mNumIndices == 3) // points and lines carry no surface
            out.triangles.push_back({base + face.mIndices[0], base + face.mIndices[1], base + face.mIndices[2]});
    }
}

} // namespace

bool IsMeshFile(std::filesystem::path const& path)
{
    return !path.extension().empty() && Assimp::Importer().IsExtensionSupported(path.extension().string());
}

MeshData ImportMesh(std::filesystem::path const& path)
{
    if (!std::filesystem::is_regular_file(path))
        throw UsageError("cannot read '" + path.string() + "': no such file");
    Assimp::Importer importer;
    if (!importer.IsExtensionSupported(path.extension().string()))
        throw UsageError("cannot read '" + path.string() + "': unsupported mesh format '" +
                         path.extension().string() + "'");
    importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS | aiComponent_TANGENTS_AND_BITANGENTS);
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    aiScene const* scene =
        importer.ReadFile(path.string(), aiProcess_Triangulate | aiProcess_JoinIdenticalVertices |
                                             aiProcess_RemoveComponent | aiProcess_PreTransformVertices |
                                             aiProcess_SortByPType);
    if (scene == nullptr) {
        std::string const error = importer.GetErrorString();
        // Assimp refuses files whose meshes all vanished (no faces, or only
        // points and lines); say what that means for the user.
        if (error.find("meshes") != std::string::npos)
            throw Failure("'" + path.string() + "' holds no triangles");
        throw Failure("cannot read '" + path.string() + "': " + error);
    }

    bool anyTexcoords = false;
    for (unsigned m = 0; m < scene->mNumMeshes; ++m)
        anyTexcoords = anyTexcoords || scene->mMeshes[m]->HasTextureCoords(0);
    MeshData mesh;
    for (unsigned m = 0; m < scene->mNumMeshes; ++m)
        AppendMesh(*scene->mMeshes[m], mesh, anyTexcoords);
    if (mesh.triangles.empty())
        throw Failure("'" + path.string() + "' holds no triangles");
    return mesh;
}

std::string ExportFormatFor(std::filesystem::path const& path)
{
    std::string const ext = LowerExtension(path);
    // The plain OBJ exporter writes a material file beside the mesh, which
    // would be a second output nobody asked for.
    if (ext == "obj")
        return "objnomtl";
    Assimp::Exporter exporter;
    for (std::size_t i = 0; i < exporter.GetExportFormatCount(); ++i) {
        aiExportFormatDesc const* desc = exporter.GetExportFormatDescription(i);
        if (desc != nullptr && ext == desc->fileExtension)
            return desc->id;
    }
    throw UsageError("cannot write '" + path.string() + "': no exporter for '." + ext + "'");
}

void ExportMesh(std::filesystem::path const& path, std::string const& formatId, std::vector<MeshPart> const& parts)
{
    // aiScene frees everything it points to with delete / delete[] in its
    // destructor, so the arrays handed to it are allocated the same way.
    auto scene = std::make_unique<aiScene>();
    scene->mMaterials = new aiMaterial*[1]{new aiMaterial()};
    scene->mNumMaterials = 1;
    scene->mRootNode = new aiNode("zgu");
    scene->mNumMeshes = static_cast<unsigned>(parts.size());
    scene->mMeshes = new aiMesh*[parts.size()]{};
    scene->mRootNode->mNumMeshes = scene->mNumMeshes;
    scene->mRootNode->mMeshes = new unsigned[parts.size()];

    for (std::size_t m = 0; m < parts.size(); ++m) {
        MeshPart const& part = parts[m];
        auto* mesh = new aiMesh();
        scene->mMeshes[m] = mesh;
        scene->mRootNode->mMeshes[m] = static_cast<unsigned>(m);
        mesh->mName = aiString("part" + std::to_string(m));
        mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
        mesh->mMaterialIndex = 0;
        mesh->mNumVertices = static_cast<unsigned>(part.positions.size());
        mesh->mVertices = new aiVector3D[part.positions.size()];
        mesh->mNormals = new aiVector3D[part.positions.size()];
        if (!part.texcoords.empty()) {
            mesh->mTextureCoords[0] = new aiVector3D[part.positions.size()];
            mesh->mNumUVComponents[0] = 2;
        }
        for (std::size_t v = 0; v < part.positions.size(); ++v) {
            auto const& p = part.positions[v];
            auto const& n = part.normals[v];
            mesh->mVertices[v] = aiVector3D(p[0], p[1], p[2]);
            mesh->mNormals[v] = aiVector3D(n[0], n[1], n[2]);
            if (!part.texcoords.empty())
                mesh->mTextureCoords[0][v] = aiVector3D(part.texcoords[v][0], part.texcoords[v][1], 0.0f);
        }
        mesh->mNumFaces = static_cast<unsigned>(part.indices.size() / 3);
        mesh->mFaces = new aiFace[mesh->mNumFaces];
        for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
            aiFace& face = mesh->mFaces[f];
            face.mNumIndices = 3;
            face.mIndices = new unsigned[3]{part.indices[3 * f], part.indices[3 * f + 1], part.indices[3 * f + 2]};
        }
    }

    Assimp::Exporter exporter;
    if (exporter.Export(scene.get(), formatId, path.string()) != aiReturn_SUCCESS)
        throw Failure("cannot write '" + path.string() + "': " + exporter.GetErrorString());
}

} // namespace Zorvan::Tool
