#include "Topology.h"

#include <mutex>

#include "source/AttributeStore.h"

namespace kyplatform {

namespace {

const IID kIidTopology = {0x2b9e4c10, 0x7d31, 0x4a6e, {0x8f, 0x02, 0x55, 0x1a, 0xc3, 0x9d, 0x60, 0x21}};
const IID kIidTopologyNode = {0x2b9e4c11, 0x7d31, 0x4a6e, {0x8f, 0x02, 0x55, 0x1a, 0xc3, 0x9d, 0x60, 0x21}};

class TopologyNode final : public AttributeStore<IMFTopologyNode> {
public:
    explicit TopologyNode(MF_TOPOLOGY_TYPE type) : type_(type) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override { return queryOwn(riid, kIidTopologyNode, ppv); }
    HRESULT SetObject(IUnknown* object) override {
        std::lock_guard<std::mutex> lock(mutex_);
        object_ = object;
        return S_OK;
    }
    HRESULT GetObject(IUnknown** object) override {
        if (object == nullptr) return E_POINTER;
        std::lock_guard<std::mutex> lock(mutex_);
        *object = object_.get();
        if (*object == nullptr) return E_FAIL;
        (*object)->AddRef();
        return S_OK;
    }
    HRESULT GetNodeType(MF_TOPOLOGY_TYPE* type) override {
        if (type == nullptr) return E_POINTER;
        *type = type_;
        return S_OK;
    }
    // Only output 0 to input 0 exists: a source stream feeds one renderer.
    HRESULT ConnectOutput(DWORD outputIndex, IMFTopologyNode* downstream, DWORD inputIndex) override {
        if (downstream == nullptr) return E_POINTER;
        if (outputIndex != 0 || inputIndex != 0) return E_INVALIDARG;
        std::lock_guard<std::mutex> lock(mutex_);
        downstream_ = downstream;
        return S_OK;
    }

    ComPtr<IMFTopologyNode> downstream() {
        std::lock_guard<std::mutex> lock(mutex_);
        return downstream_;
    }

private:
    ~TopologyNode() override = default;

    const MF_TOPOLOGY_TYPE type_;
    std::mutex mutex_;
    ComPtr<IUnknown> object_;
    ComPtr<IMFTopologyNode> downstream_;
};

class Topology final : public AttributeStore<IMFTopology> {
public:
    HRESULT QueryInterface(REFIID riid, void** ppv) override { return queryOwn(riid, kIidTopology, ppv); }
    HRESULT AddNode(IMFTopologyNode* node) override {
        if (node == nullptr) return E_POINTER;
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& held : nodes_) {
            if (held.get() == node) return E_INVALIDARG;
        }
        if (nodes_.size() >= 0xFFFF) return E_INVALIDARG;
        nodes_.emplace_back(node);
        return S_OK;
    }
    HRESULT GetNodeCount(WORD* count) override {
        if (count == nullptr) return E_POINTER;
        std::lock_guard<std::mutex> lock(mutex_);
        *count = static_cast<WORD>(nodes_.size());
        return S_OK;
    }

    std::vector<ComPtr<IMFTopologyNode>> nodes() {
        std::lock_guard<std::mutex> lock(mutex_);
        return nodes_;
    }

private:
    ~Topology() override = default;

    std::mutex mutex_;
    std::vector<ComPtr<IMFTopologyNode>> nodes_;
};

}  // namespace

std::vector<ComPtr<IMFTopologyNode>> topologyNodes(IMFTopology* topology) {
    auto* own = dynamic_cast<Topology*>(topology);
    return own == nullptr ? std::vector<ComPtr<IMFTopologyNode>>() : own->nodes();
}

ComPtr<IMFTopologyNode> downstreamOf(IMFTopologyNode* node) {
    auto* own = dynamic_cast<TopologyNode*>(node);
    return own == nullptr ? ComPtr<IMFTopologyNode>() : own->downstream();
}

}  // namespace kyplatform

HRESULT MFCreateTopology(IMFTopology** topology) {
    if (topology == nullptr) return E_POINTER;
    *topology = kyplatform::createWithStore<kyplatform::Topology>();
    return *topology != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT MFCreateTopologyNode(MF_TOPOLOGY_TYPE type, IMFTopologyNode** node) {
    if (node == nullptr) return E_POINTER;
    *node = nullptr;
    if (type != MF_TOPOLOGY_OUTPUT_NODE && type != MF_TOPOLOGY_SOURCESTREAM_NODE) return E_INVALIDARG;
    *node = kyplatform::createWithStore<kyplatform::TopologyNode>(type);
    return *node != nullptr ? S_OK : E_OUTOFMEMORY;
}
