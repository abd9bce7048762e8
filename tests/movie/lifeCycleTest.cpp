// The movie nodes in every order of life.
#include "tests/support/lifeCycle.h"

#include "tests/movie/movieFakes.h"

template <> struct LifeCycleOf<kivMovieInCompressed> {
    static std::unique_ptr<kivMovieInCompressed> make()
    {
        fakeFile.on = true;
        return std::make_unique<kivMovieInCompressed>();
    }
    static void setup(kivMovieInCompressed& movie)
    {
        char file[] = "a.mov";
        EXPECT_EQ(movie.setup(file), kivErrNone);
    }
};

using MovieNodes = testing::Types<kivMovieInCompressed>;
INSTANTIATE_TYPED_TEST_SUITE_P(movie, LifeCycle, MovieNodes);
