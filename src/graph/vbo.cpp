#include "graph/vbo.h"

#include "geo/body.h"

void Vbo::upload(const std::shared_ptr<const Body>& body)
{
    uploaded = body;
    holdsData = body != nullptr;
}

void Vbo::clear()
{
    uploaded.reset();
    holdsData = false;
}
