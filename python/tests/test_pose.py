import numpy as np
import pytest

import orucore


def rotation(rvec):
    """Rodrigues' formula in NumPy."""
    theta = np.linalg.norm(rvec)
    k = rvec / theta
    K = np.array([[0, -k[2], k[1]], [k[2], 0, -k[0]], [-k[1], k[0], 0]])
    return np.eye(3) + np.sin(theta) * K + (1 - np.cos(theta)) * K @ K


CAMERA = np.array([[800.0, 0, 320], [0, 810, 240], [0, 0, 1]])


@pytest.mark.parametrize("seed,n", [(1, 6), (2, 12), (3, 40)])
def test_pose_of_a_projected_scene(seed, n):
    rng = np.random.default_rng(seed)
    R, t = rotation(rng.normal(0, 0.4, 3)), np.array([0.1, -0.2, 6.0]) + rng.normal(0, 0.3, 3)
    world = rng.uniform(-1, 1, (n, 3))
    camera_points = world @ R.T + t
    pixels = camera_points @ CAMERA.T
    pixels = np.ascontiguousarray(pixels[:, :2] / pixels[:, 2:])
    R_got, t_got = orucore.solve_pnp(world, pixels, CAMERA)
    np.testing.assert_allclose(R_got, R, atol=1e-6)
    np.testing.assert_allclose(t_got, t, atol=1e-6)


def test_bad_points_raise_value_error():
    world, pixels = np.zeros((6, 3)), np.zeros((6, 2))
    for args, what in [((world.astype(np.float32), pixels, CAMERA), "dtype"),
                       ((world, np.zeros((5, 2)), CAMERA), "axis 0"),
                       ((world, pixels, CAMERA[:2]), "axis 0"),
                       ((world, pixels, np.asfortranarray(CAMERA)), "contiguous"),
                       ((world[None], pixels, CAMERA), "dimensions")]:
        with pytest.raises(ValueError, match=what):
            orucore.solve_pnp(*args)
