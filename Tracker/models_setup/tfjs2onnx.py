#!/usr/bin/python3
"""Converts a TF.js graph model (model.json and its .bin shards) into an ONNX file for OpenCV 4.6's
cv2.dnn. Used at setup time by install_models.sh; needs python3-numpy and python3-onnx (1.12).

Activations are carried NCHW, so the ONNX input is [1, 3, H, W], what cv2.dnn.blobFromImage makes.
Weights are transposed once; a Reshape/Transpose pair appears only where the graph flattens a tensor.
Shapes are static (batch 1), so Shape/StridedSlice/Pack chains fold into constants. Opset 11, and
only the forms cv2.dnn 4.6 imports (Relu6 as relu(x) - relu(x - 6): it reads Clip only with
attributes).

Ops covered: Conv2D, _FusedConv2D (BiasAdd + Relu/Relu6/Prelu/LeakyRelu), DepthwiseConv2dNative,
FusedDepthwiseConv2dNative, Conv2DBackpropInput, Add/AddV2/AddN/Sub/Mul/RealDiv/BiasAdd, Relu,
Relu6, Sigmoid, Tanh, Prelu, AvgPool, MaxPool, ResizeBilinear, Pad/PadV2, Reshape, ConcatV2,
MatMul, DepthToSpace, Identity, Shape/StridedSlice/Pack (folded). Anything else stops the
conversion with the op's name.

usage: tfjs2onnx.py model.json out.onnx [--outputs name,name] [--size H,W]
"""
import argparse
import base64
import json
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

OPSET = 11


def _s(attr, key, default=None):
    v = attr.get(key)
    if v is None:
        return default
    if 's' in v:
        return base64.b64decode(v['s']).decode()
    if 'i' in v:
        return int(v['i'])
    if 'f' in v:
        return float(v['f'])
    if 'b' in v:
        return bool(v['b'])
    if 'list' in v:
        lst = v['list']
        if 'i' in lst:
            return [int(x) for x in lst['i']]
        if 's' in lst:
            return [base64.b64decode(x).decode() for x in lst['s']]
        if 'f' in lst:
            return [float(x) for x in lst['f']]
        return []
    return default


def load_weights(model_json):
    """Return {name: np.ndarray} for every weight of the manifest, dequantized to float32."""
    j = json.load(open(model_json))
    base = os.path.dirname(os.path.abspath(model_json))
    out = {}
    for group in j['weightsManifest']:
        buf = b''.join(open(os.path.join(base, p), 'rb').read() for p in group['paths'])
        off = 0
        for w in group['weights']:
            shape = [int(d) for d in w['shape']]
            n = int(np.prod(shape)) if shape else 1
            q = w.get('quantization')
            if q:
                qdt = {'uint8': np.uint8, 'uint16': np.uint16, 'float16': np.float16}[q['dtype']]
                arr = np.frombuffer(buf, qdt, n, off)
                off += n * arr.itemsize
                if q['dtype'] == 'float16':
                    arr = arr.astype(np.float32)
                else:
                    arr = arr.astype(np.float32) * np.float32(q['scale']) + np.float32(q['min'])
            else:
                dt = {'float32': np.float32, 'int32': np.int32, 'bool': np.bool_}[w['dtype']]
                arr = np.frombuffer(buf, dt, n, off)
                off += n * arr.itemsize
            out[w['name']] = np.array(arr).reshape(shape)
    return j, out


def same_pads(in_size, k, s, d=1):
    k_eff = (k - 1) * d + 1
    out = -(-in_size // s)
    total = max((out - 1) * s + k_eff - in_size, 0)
    return total // 2, total - total // 2, out


def conv_out(in_size, k, s, pad, d=1):
    if pad == 'SAME':
        return same_pads(in_size, k, s, d)
    k_eff = (k - 1) * d + 1
    return 0, 0, (in_size - k_eff) // s + 1


class Converter:
    def __init__(self, model_json, size=None):
        self.j, self.w = load_weights(model_json)
        self.nodes = self.j['modelTopology']['node']
        self.byname = {n['name']: n for n in self.nodes}
        self.const = {}      # tf tensor -> numpy (TF semantics)
        self.t = {}          # tf tensor -> (onnx name, layout 'NCHW'|'plain', tf shape)
        self.onodes, self.inits, self.inputs = [], [], []
        self.uid = 0
        self.size = size

    # ---- helpers -------------------------------------------------------
    def name(self, hint):
        self.uid += 1
        return '%s__%d' % (hint.replace(':', '_'), self.uid)

    def init(self, hint, arr):
        n = self.name(hint)
        self.inits.append(numpy_helper.from_array(np.ascontiguousarray(arr), n))
        return n

    def node(self, op, ins, hint, **attrs):
        out = self.name(hint)
        self.onodes.append(helper.make_node(op, ins, [out], name=out, **attrs))
        return out

    @staticmethod
    def ref(inp):
        inp = inp.lstrip('^')
        return inp[:-2] if inp.endswith(':0') else inp

    def get(self, inp):
        return self.t[self.ref(inp)]

    def is_const(self, inp):
        return self.ref(inp) in self.const

    def cval(self, inp):
        return self.const[self.ref(inp)]

    def to_nchw_const(self, c, rank):
        """Make a TF (NHWC-broadcasting) constant broadcast correctly against an NCHW tensor."""
        c = np.asarray(c, np.float32)
        if c.size == 1:
            return c.reshape([1])
        if rank != 4:
            return c
        while c.ndim < 4:
            c = c[None]
        return c.transpose(0, 3, 1, 2)

    # ---- main ----------------------------------------------------------
    def run(self, outputs):
        for n in self.nodes:
            if n['op'] == 'Const':
                if n['name'] in self.w:
                    self.const[n['name']] = self.w[n['name']]
                else:
                    raise SystemExit('Const %s has no weight' % n['name'])
        done = set(self.const)
        pending = [n for n in self.nodes if n['op'] != 'Const']
        while pending:
            rest = []
            for n in pending:
                deps = [self.ref(i) for i in n.get('input', []) if not i.startswith('^')]
                if all(d in done for d in deps):
                    self.convert(n)
                    done.add(n['name'])
                else:
                    rest.append(n)
            if len(rest) == len(pending):
                raise SystemExit('cannot order graph; stuck at %s' % rest[0]['name'])
            pending = rest
        outs = []
        for o in outputs:
            oname, layout, shape = self.get(o)
            final = o.replace(':0', '').split('/')[-1]
            self.onodes.append(helper.make_node('Identity', [oname], [final], name=final + '_out'))
            oshape = [shape[0], shape[3], shape[1], shape[2]] if layout == 'NCHW' else shape
            outs.append(helper.make_tensor_value_info(final, TensorProto.FLOAT, oshape))
            print('output %s <- %s %s %s' % (final, o, layout, oshape))
        g = helper.make_graph(self.onodes, 'tfjs', self.inputs, outs, self.inits)
        m = helper.make_model(g, opset_imports=[helper.make_opsetid('', OPSET)],
                              producer_name='ombrik-tfjs2onnx')
        m.ir_version = 6
        onnx.checker.check_model(m)
        return m

    def set(self, n, oname, layout, shape):
        self.t[n['name']] = (oname, layout, [int(s) for s in shape])

    def convert(self, n):
        op, a, ins = n['op'], n.get('attr', {}), [i for i in n.get('input', []) if not i.startswith('^')]
        name = n['name']
        f = getattr(self, 'op_' + op.lstrip('_'), None)
        if f is None:
            raise SystemExit('unsupported op %s (%s)' % (op, name))
        f(n, a, ins)

    # ---- ops -----------------------------------------------------------
    def op_Placeholder(self, n, a, ins):
        shape = [int(d.get('size', -1)) for d in a['shape']['shape']['dim']]
        shape = [1 if s < 0 else s for s in shape]
        if self.size:
            shape[1], shape[2] = self.size
        oname = 'input'
        self.inputs.append(helper.make_tensor_value_info(oname, TensorProto.FLOAT,
                                                         [shape[0], shape[3], shape[1], shape[2]]))
        self.set(n, oname, 'NCHW', shape)

    def op_Identity(self, n, a, ins):
        if self.is_const(ins[0]):
            self.const[n['name']] = self.cval(ins[0])
        else:
            self.t[n['name']] = self.get(ins[0])

    def _act(self, x, kind, hint, alpha=None, leaky=None):
        if kind == 'Relu':
            return self.node('Relu', [x], hint)
        if kind == 'Relu6':
            # cv2.dnn 4.6 reads Clip only with min/max attributes (opset < 11), so
            # write relu6(x) = relu(x) - relu(x - 6)
            r = self.node('Relu', [x], hint + '_r')
            s = self.node('Relu', [self.node('Add', [x, self.init('m6', np.array([-6], np.float32))], hint + '_m6')],
                          hint + '_r6')
            return self.node('Sub', [r, s], hint)
        if kind == 'Prelu':
            return self.node('PRelu', [x, self.init('slope', alpha.astype(np.float32).reshape(-1, 1, 1))], hint)
        if kind == 'LeakyRelu':
            return self.node('LeakyRelu', [x], hint, alpha=float(leaky))
        if kind == 'Sigmoid':
            return self.node('Sigmoid', [x], hint)
        if kind == 'Tanh':
            return self.node('Tanh', [x], hint)
        raise SystemExit('unsupported fused activation ' + kind)

    def _conv(self, n, a, ins, depthwise, fused):
        x, layout, shp = self.get(ins[0])
        assert layout == 'NCHW', n['name']
        w = self.cval(ins[1]).astype(np.float32)
        kh, kw = w.shape[0], w.shape[1]
        st = _s(a, 'strides', [1, 1, 1, 1])
        dl = _s(a, 'dilations', [1, 1, 1, 1])
        pad = _s(a, 'padding', 'VALID')
        if pad == 'EXPLICIT':
            ep = _s(a, 'explicit_paddings')
            t, b, oh = ep[2], ep[3], (shp[1] + ep[2] + ep[3] - ((kh - 1) * dl[1] + 1)) // st[1] + 1
            l, r, ow = ep[4], ep[5], (shp[2] + ep[4] + ep[5] - ((kw - 1) * dl[2] + 1)) // st[2] + 1
        else:
            t, b, oh = conv_out(shp[1], kh, st[1], pad, dl[1])
            l, r, ow = conv_out(shp[2], kw, st[2], pad, dl[2])
        if depthwise:
            c, m = w.shape[2], w.shape[3]
            W = w.transpose(2, 3, 0, 1).reshape(c * m, 1, kh, kw)
            group, cout = c, c * m
        else:
            W = w.transpose(3, 2, 0, 1)
            group, cout = 1, w.shape[3]
        conv_in = [x, self.init('W', W)]
        ops = _s(a, 'fused_ops', []) if fused else []
        extra = ins[2:]
        if ops and ops[0] == 'BiasAdd':
            conv_in.append(self.init('B', self.cval(extra[0]).astype(np.float32).reshape(-1)))
            extra = extra[1:]
            ops = ops[1:]
        y = self.node('Conv', conv_in, n['name'], kernel_shape=[kh, kw], strides=st[1:3],
                      dilations=dl[1:3], pads=[t, l, b, r], group=group)
        for o in ops:
            y = self._act(y, o, n['name'] + '_' + o,
                          alpha=self.cval(extra[0]) if o == 'Prelu' else None,
                          leaky=_s(a, 'leakyrelu_alpha', 0.2))
        self.set(n, y, 'NCHW', [shp[0], oh, ow, cout])

    def op_Conv2D(self, n, a, ins):
        self._conv(n, a, ins, False, False)

    def op_FusedConv2D(self, n, a, ins):
        self._conv(n, a, ins, False, True)

    def op_DepthwiseConv2dNative(self, n, a, ins):
        self._conv(n, a, ins, True, False)

    def op_FusedDepthwiseConv2dNative(self, n, a, ins):
        self._conv(n, a, ins, True, True)

    def op_Conv2DBackpropInput(self, n, a, ins):
        out_shape = [int(v) for v in self.cval(ins[0])]
        w = self.cval(ins[1]).astype(np.float32)           # [kh, kw, out, in]
        x, layout, shp = self.get(ins[2])
        kh, kw = w.shape[0], w.shape[1]
        st = _s(a, 'strides')
        pads, opad = [], []
        for i, k, s in ((1, kh, st[1]), (2, kw, st[2])):
            full = (shp[i] - 1) * s + k
            total = max(full - out_shape[i], 0) if _s(a, 'padding') == 'SAME' else 0
            pads.append((total // 2, total - total // 2))
            opad.append(out_shape[i] - (full - total))
        attrs = dict(kernel_shape=[kh, kw], strides=st[1:3],
                     pads=[pads[0][0], pads[1][0], pads[0][1], pads[1][1]])
        if any(opad):
            attrs['output_padding'] = opad
        y = self.node('ConvTranspose', [x, self.init('W', w.transpose(3, 2, 0, 1))], n['name'], **attrs)
        self.set(n, y, 'NCHW', out_shape)

    def _binary(self, n, ins, onnx_op):
        if all(self.is_const(i) for i in ins):
            fn = {'Add': np.add, 'Mul': np.multiply, 'Sub': np.subtract, 'Div': np.divide}[onnx_op]
            self.const[n['name']] = fn(self.cval(ins[0]), self.cval(ins[1]))
            return
        shapes = [self.get(i)[2] if not self.is_const(i) else list(np.shape(self.cval(i))) for i in ins]
        out_shape = list(np.broadcast_shapes(*[tuple(s) for s in shapes]))
        layouts = [self.get(i)[1] for i in ins if not self.is_const(i)]
        layout = 'NCHW' if 'NCHW' in layouts else 'plain'
        names = []
        for i in ins:
            if self.is_const(i):
                names.append(self.init('c', self.to_nchw_const(self.cval(i), 4 if layout == 'NCHW' else 0)))
            else:
                names.append(self.get(i)[0])
        # keep the activation first: some importers only fold a constant given second
        if self.is_const(ins[0]) and onnx_op in ('Add', 'Mul'):
            names = names[::-1]
        self.set(n, self.node(onnx_op, names, n['name']), layout, out_shape)

    def op_Add(self, n, a, ins):
        self._binary(n, ins, 'Add')

    op_AddV2 = op_Add
    op_BiasAdd = op_Add

    def op_Sub(self, n, a, ins):
        self._binary(n, ins, 'Sub')

    def op_Mul(self, n, a, ins):
        self._binary(n, ins, 'Mul')

    def op_RealDiv(self, n, a, ins):
        self._binary(n, ins, 'Div')

    def op_AddN(self, n, a, ins):
        x, layout, shp = self.get(ins[0])
        for i in ins[1:]:
            x = self.node('Add', [x, self.get(i)[0]], n['name'])
        self.set(n, x, layout, shp)

    def _unary(self, n, ins, kind):
        x, layout, shp = self.get(ins[0])
        self.set(n, self._act(x, kind, n['name']), layout, shp)

    def op_Relu(self, n, a, ins):
        self._unary(n, ins, 'Relu')

    def op_Relu6(self, n, a, ins):
        self._unary(n, ins, 'Relu6')

    def op_Sigmoid(self, n, a, ins):
        self._unary(n, ins, 'Sigmoid')

    def op_Tanh(self, n, a, ins):
        self._unary(n, ins, 'Tanh')

    def op_Prelu(self, n, a, ins):
        x, layout, shp = self.get(ins[0])
        self.set(n, self._act(x, 'Prelu', n['name'], alpha=self.cval(ins[1])), layout, shp)

    def _pool(self, n, a, ins, kind):
        x, layout, shp = self.get(ins[0])
        k, st, pad = _s(a, 'ksize'), _s(a, 'strides'), _s(a, 'padding')
        if pad == 'VALID' and k[1] == shp[1] and k[2] == shp[2]:
            y = self.node('Global' + kind, [x], n['name'])
            self.set(n, y, layout, [shp[0], 1, 1, shp[3]])
            return
        t, b, oh = conv_out(shp[1], k[1], st[1], pad)
        l, r, ow = conv_out(shp[2], k[2], st[2], pad)
        attrs = dict(kernel_shape=k[1:3], strides=st[1:3], pads=[t, l, b, r])
        if kind == 'AveragePool':
            attrs['count_include_pad'] = 0
        self.set(n, self.node(kind, [x], n['name'], **attrs), layout, [shp[0], oh, ow, shp[3]])

    def op_AvgPool(self, n, a, ins):
        self._pool(n, a, ins, 'AveragePool')

    def op_MaxPool(self, n, a, ins):
        self._pool(n, a, ins, 'MaxPool')

    def op_ResizeBilinear(self, n, a, ins):
        x, layout, shp = self.get(ins[0])
        h, w = [int(v) for v in self.cval(ins[1])]
        if _s(a, 'align_corners', False):
            mode = 'align_corners'
        elif _s(a, 'half_pixel_centers', False):
            mode = 'half_pixel'
        else:
            mode = 'asymmetric'
        scales = np.array([1, 1, h / shp[1], w / shp[2]], np.float32)
        y = self.node('Resize', [x, self.init('roi', np.zeros([0], np.float32)), self.init('scales', scales)],
                      n['name'], mode='linear', coordinate_transformation_mode=mode)
        self.set(n, y, layout, [shp[0], h, w, shp[3]])

    def op_Pad(self, n, a, ins):
        x, layout, shp = self.get(ins[0])
        p = np.asarray(self.cval(ins[1]), np.int64).reshape(-1, 2)
        if layout == 'NCHW':
            p = p[[0, 3, 1, 2]]
        pads = np.concatenate([p[:, 0], p[:, 1]]).astype(np.int64)
        cv = float(np.asarray(self.cval(ins[2])).reshape(-1)[0]) if len(ins) > 2 else 0.0
        y = self.node('Pad', [x, self.init('pads', pads), self.init('cv', np.array(cv, np.float32))],
                      n['name'], mode='constant')
        pt = np.asarray(self.cval(ins[1])).reshape(-1, 2)
        self.set(n, y, layout, [s + int(pt[i].sum()) for i, s in enumerate(shp)])

    op_PadV2 = op_Pad

    def op_Shape(self, n, a, ins):
        self.const[n['name']] = np.array(self.get(ins[0])[2], np.int32)

    def op_StridedSlice(self, n, a, ins):
        v = self.cval(ins[0])
        b, e, s = [list(np.asarray(self.cval(i)).reshape(-1)) for i in ins[1:4]]
        bm, em, sm = _s(a, 'begin_mask', 0), _s(a, 'end_mask', 0), _s(a, 'shrink_axis_mask', 0)
        if _s(a, 'ellipsis_mask', 0) or _s(a, 'new_axis_mask', 0):
            raise SystemExit('StridedSlice masks not supported')
        idx = []
        for d in range(len(b)):
            if sm >> d & 1:
                idx.append(int(b[d]))
            else:
                idx.append(slice(None if bm >> d & 1 else int(b[d]), None if em >> d & 1 else int(e[d]), int(s[d])))
        self.const[n['name']] = np.asarray(v)[tuple(idx)]

    def op_Pack(self, n, a, ins):
        self.const[n['name']] = np.stack([np.asarray(self.cval(i)) for i in ins], axis=_s(a, 'axis', 0))

    def op_Reshape(self, n, a, ins):
        target = [int(v) for v in np.asarray(self.cval(ins[1])).reshape(-1)]
        if self.is_const(ins[0]):
            self.const[n['name']] = np.reshape(self.cval(ins[0]), target)
            return
        x, layout, shp = self.get(ins[0])
        total = int(np.prod(shp))
        if -1 in target:
            known = int(np.prod([t for t in target if t != -1]))
            target[target.index(-1)] = total // known
        if layout == 'NCHW':
            if not (shp[1] == 1 and shp[2] == 1):   # only then NCHW and NHWC orders agree
                x = self.node('Transpose', [x], n['name'] + '_nhwc', perm=[0, 2, 3, 1])
        if len(target) == 4 and target[1] == 1 and target[2] == 1:
            y = self.node('Reshape', [x, self.init('shape', np.array([target[0], target[3], 1, 1], np.int64))],
                          n['name'])
            self.set(n, y, 'NCHW', target)
            return
        y = self.node('Reshape', [x, self.init('shape', np.array(target, np.int64))], n['name'])
        if len(target) == 4:
            y = self.node('Transpose', [y], n['name'] + '_nchw', perm=[0, 3, 1, 2])
            self.set(n, y, 'NCHW', target)
        else:
            self.set(n, y, 'plain', target)

    def op_ConcatV2(self, n, a, ins):
        axis = int(np.asarray(self.cval(ins[-1])).reshape(-1)[0])
        parts = ins[:-1]
        if all(self.is_const(i) for i in parts):
            self.const[n['name']] = np.concatenate([np.asarray(self.cval(i)) for i in parts], axis)
            return
        got = [self.get(i) for i in parts]
        layout = got[0][1]
        shp = list(got[0][2])
        ax = axis % len(shp)
        shp[ax] = sum(g[2][ax] for g in got)
        oax = {0: 0, 1: 2, 2: 3, 3: 1}[ax] if layout == 'NCHW' else ax
        self.set(n, self.node('Concat', [g[0] for g in got], n['name'], axis=oax), layout, shp)

    def op_MatMul(self, n, a, ins):
        x, layout, shp = self.get(ins[0])
        w = self.cval(ins[1]).astype(np.float32)
        if _s(a, 'transpose_b', False):
            w = w.T
        assert not _s(a, 'transpose_a', False)
        y = self.node('MatMul', [x, self.init('W', w)], n['name'])
        self.set(n, y, 'plain', [shp[0], w.shape[1]])

    def op_DepthToSpace(self, n, a, ins):
        x, layout, shp = self.get(ins[0])
        bs = _s(a, 'block_size')
        y = self.node('DepthToSpace', [x], n['name'], blocksize=bs, mode='DCR')
        self.set(n, y, layout, [shp[0], shp[1] * bs, shp[2] * bs, shp[3] // (bs * bs)])


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('model_json')
    ap.add_argument('out_onnx')
    ap.add_argument('--outputs', help='comma-separated TF tensor names (default: signature outputs)')
    ap.add_argument('--size', help='override input H,W')
    args = ap.parse_args()
    size = [int(v) for v in args.size.split(',')] if args.size else None
    c = Converter(args.model_json, size)
    if args.outputs:
        outputs = args.outputs.split(',')
    else:
        sig = c.j.get('signature') or c.j.get('userDefinedMetadata', {}).get('signature', {})
        outputs = [o['name'] for o in sig['outputs'].values()]
    m = c.run(outputs)
    onnx.save(m, args.out_onnx)
    print('wrote %s (%d nodes, %d initializers)' % (args.out_onnx, len(m.graph.node), len(m.graph.initializer)))


if __name__ == '__main__':
    sys.exit(main())
