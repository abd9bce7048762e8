// lifeCycleTest.cpp - the converter nodes in every order of life.
#include "tests/support/lifeCycle.h"

#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"

template <class Converter>
requires std::is_base_of_v<kivIC, Converter>
struct LifeCycleOf<Converter> {
    static std::unique_ptr<Converter> make()
    {
        auto node = std::make_unique<Converter>();
        node->imageSizeX = 16;
        node->imageSizeY = 16;
        if (node->direction == ZV_IC_CODE_DIRECTION_UNDEFINED)
            node->dstPacking = ZV_IMAGE_PACKING_RGB;
        return node;
    }
    static void setup(Converter& node) { EXPECT_EQ(node.setup(), 0); }
};

using Converters = testing::Types<kivIC, kivICjdecoder, kivICjencoder>;
INSTANTIATE_TYPED_TEST_SUITE_P(convert, LifeCycle, Converters);
