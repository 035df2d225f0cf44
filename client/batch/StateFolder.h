#pragma once

#include <stillora/Error.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What is kept beside a manifest, in the folder "MANIFEST.state": for each movie the claim of who makes it, the
/// receipt of what was made, or why it could not be; who is at work; a log of each machine. Movies are spread over 4096
/// folders by their keys; a piece of a movie has a key, and files, of its own beside those of its movie. Knows the
/// names alone; may lie on a file system that many machines share.
class StateFolder final {
public:
    /// @param manifest  absolute
    explicit StateFolder(const std::filesystem::path& manifest);

    const std::filesystem::path& path() const { return path_; }
    /// @return an error that names it if it cannot be made
    Result<void> make() const;

    /// @name Files
    /// @{
    std::filesystem::path lines() const { return path_ / "lines"; }
    std::filesystem::path summary() const { return path_ / "summary.json"; }
    std::filesystem::path workers() const { return path_ / "workers"; }
    std::filesystem::path logs() const { return path_ / "logs"; }
    std::filesystem::path receipt(const std::string& key) const { return file(key, "receipt"); }
    std::filesystem::path failure(const std::string& key) const { return file(key, "failure"); }
    /// Of a movie that was made and is being put into its place.
    std::filesystem::path delivery(const std::string& key) const { return file(key, "delivery"); }
    /// @param generation  counted from 1; the highest that is there is the one that holds
    std::filesystem::path claim(const std::string& key, int generation) const;
    /// @}

    /// @name Pieces of a movie, counted from 1
    /// @{
    static std::string keyOfPiece(const std::string& key, size_t number);
    /// Also of a key of a movie, which is its own.
    static std::string keyOfMovie(const std::string& key);
    /// 0 for the key of a movie.
    static size_t numberOfPiece(const std::string& key);
    /// @}

    /// What there is of one movie, or of one piece.
    struct Traces {
        bool hasReceipt = false;
        bool hasFailure = false;
        bool hasDelivery = false;
        /// Of the movie there are pieces, or something of them.
        bool hasPieces = false;
        /// In no order.
        std::vector<int> claims;

        int newestClaim() const;
    };
    /// Reads the folder of the movie anew, also where a network's file system would rather answer from memory.
    Traces look(const std::string& key) const;

    /// Hands over every movie and every piece of which there is anything.
    void forEach(const std::function<void(const std::string& key, const Traces&)>& take) const;

    /// Removes what there is of a movie's pieces, but for claims, which belong to workers.
    void removePieces(const std::string& key) const;

    /// Makes the movie's folder if it is missing.
    void makeShard(const std::string& key) const;

    /// @return the file's whole contents; nothing if it cannot be read, or is nothing that a folder of states holds
    static std::optional<std::string> read(const std::filesystem::path& file);
    /// Writes a file that is not there yet, or whose contents do not matter.
    /// @return 0, or the reason
    static int write(const std::filesystem::path& file, std::string_view text);

private:
    std::filesystem::path shard(const std::string& key) const;
    std::filesystem::path file(const std::string& key, std::string_view kind) const;

    const std::filesystem::path path_;
};

} // namespace stillora
